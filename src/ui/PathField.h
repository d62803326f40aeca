#pragma once

#include <QLineEdit>

namespace tallowick
{

// A line edit for a file path. While it is not being edited, a path too long for the field shows
// its start and its end with an ellipsis between ("/home/ann/…/tls/ca.pem"), as the file's name
// matters most; the tool tip holds the whole path, and editing shows all of it again. text() is
// always the whole path.
class PathField final : public QLineEdit
{
    Q_OBJECT

public:
    explicit PathField(QWidget *parent = nullptr);

    // What the field shows while it is not being edited.
    QString shownText() const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QRect textArea() const;
};

} // namespace tallowick
