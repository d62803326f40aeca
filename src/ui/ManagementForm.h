#pragma once

#include "core/ColumnInfo.h"
#include "core/ManagementSheet.h"
#include "management/ManagementDraft.h"
#include "ui/JobDialog.h"

#include <optional>
#include <string>
#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QVBoxLayout;

namespace tallowick
{

class ColumnDraftEditor;
class UserPrompts;

// The form behind one schema or account change: create a database or table, add or edit a
// column, create an index, insert a row, create a user. Every edit regenerates the statement
// through the management generator and shows it (or the generator's refusal) at once; nothing
// is sent until the person confirms it, and then only as one job on the session's lane.
//
// The target (database, table, columns) is taken from the session when the form opens, so what
// was reviewed is what gets changed even if the session moves on. Main thread only; `prompts`
// must outlive the form, the session need not.
class ManagementForm final : public JobDialog
{
    Q_OBJECT

public:
    // `column` is the column to edit (modifyColumn only). kind must not be importCSV.
    ManagementForm(ServerSession &session,
        UserPrompts &prompts,
        ManagementSheet kind,
        const std::optional<ColumnInfo> &column = std::nullopt,
        QWidget *parent = nullptr);

    QString previewText() const; // the generated SQL shown for review
    void apply(); // what the apply button does

    ManagementSheet kind() const { return m_kind; }
    // The fields as typed now.
    ManagementDraft draft() const;

private:
    struct InsertField {
        std::string column;
        QComboBox *mode;
        QLineEdit *value;
    };

    void buildFields(QVBoxLayout *layout);
    QWidget *insertFields();
    QWidget *indexFields();
    // Regenerates the statement. Every call after opening answers an edit of the fields.
    void refresh();
    // Refuses a form whose target the session had not chosen when it opened.
    void requireTarget() const;
    void act() override { apply(); }

    UserPrompts &m_prompts;
    const ManagementSheet m_kind;
    const std::optional<ColumnInfo> m_column;
    const ManagementContext m_context;

    QLineEdit *m_name = nullptr;
    QComboBox *m_charset = nullptr;
    QCheckBox *m_unique = nullptr;
    ColumnDraftEditor *m_columns = nullptr;
    std::vector<std::pair<std::string, QCheckBox *>> m_indexColumns;
    std::vector<InsertField> m_insertFields;
    QLineEdit *m_host = nullptr;
    QLineEdit *m_password = nullptr;
    QPlainTextEdit *m_preview;
    bool m_opened = false;
};

} // namespace tallowick
