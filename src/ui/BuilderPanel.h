#pragma once

#include <QPointer>
#include <QString>
#include <QWidget>
#include <functional>
#include <string>
#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QSpinBox;
class QVBoxLayout;

namespace tallowick
{

class BuilderColumnRow;
class BuilderFilterRow;
class BuilderJoinRow;
class SQLEditor;
class ServerSession;
struct BuilderSpec;

// The visual query builder: a form over the session's builder model (source table, columns and
// aggregates, joins, filters, grouping, sorting and limit) beside a live, read-only preview of the
// SELECT it generates. Every change is written into the session at once.
class BuilderPanel final : public QWidget
{
    Q_OBJECT

public:
    explicit BuilderPanel(ServerSession &session, QWidget *parent = nullptr);

    SQLEditor *preview() const { return m_preview; }
    QComboBox *tablePicker() const { return m_table; }
    QPushButton *addJoinButton() const { return m_addJoin; }
    QPushButton *addFilterButton() const { return m_addFilter; }
    QPushButton *copyButton() const { return m_copy; }
    QPushButton *openButton() const { return m_open; }
    QLabel *sourceHint() const { return m_sourceHint; }
    // The rows of the column, join and filter sections, as shown now.
    QList<BuilderColumnRow *> columnRows() const;
    QList<BuilderJoinRow *> joinRows() const;
    QList<BuilderFilterRow *> filterRows() const;

private:
    void refresh();
    void rebuildForm();
    void refreshPreview();
    void change(const std::function<void(BuilderSpec &)> &edit);
    void chooseSource(const QString &table);
    // Asks the session for a table's columns; a request it would drop while busy is kept and
    // made again once the session is idle.
    void requestColumns(const std::string &table);
    void loadPendingColumns();
    template <typename Row> QList<Row *> rowsIn(QVBoxLayout *layout) const;
    // Every table.column the pickers offer: the source table's columns, then each joined table's.
    QStringList columnReferences() const;
    QStringList tableNames() const;
    QString structureKey() const;

    QPointer<ServerSession> m_session;
    QComboBox *m_table;
    QCheckBox *m_distinct;
    QLabel *m_sourceHint;
    QWidget *m_sourceRow;
    QVBoxLayout *m_columnsLayout;
    QVBoxLayout *m_joinsLayout;
    QPushButton *m_addJoin;
    QComboBox *m_match;
    QVBoxLayout *m_filtersLayout;
    QPushButton *m_addFilter;
    QVBoxLayout *m_groupLayout;
    QComboBox *m_sortColumn;
    QComboBox *m_direction;
    QSpinBox *m_limit;
    SQLEditor *m_preview;
    QPushButton *m_copy;
    QPushButton *m_open;
    QString m_structure;
    bool m_rebuilding = false;
    std::string m_builtSQL;
    std::vector<std::string> m_pendingColumns;
    bool m_buildFailed = true;
};

} // namespace tallowick
