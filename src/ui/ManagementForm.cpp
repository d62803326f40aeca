#include "ui/ManagementForm.h"

#include "core/AppError.h"
#include "core/Utf8Text.h"
#include "management/ManagementSQL.h"
#include "session/ServerSession.h"
#include "session/UserPrompts.h"
#include "ui/ColumnDraftEditor.h"
#include "ui/FormParts.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>
#include <algorithm>

namespace tallowick
{

namespace
{

bool needsDatabase(ManagementSheet kind)
{
    return kind != ManagementSheet::createDatabase && kind != ManagementSheet::createUser;
}

bool needsTable(ManagementSheet kind)
{
    return needsDatabase(kind) && kind != ManagementSheet::createTable;
}

// Names of databases, tables, columns and indexes cannot end in a space on the server, so
// stray white space from pasting is dropped rather than turned into a server error.
std::string trimmedName(const QLineEdit *field)
{
    return std::string(trimWhitespace(field->text().toStdString()));
}

// A column the server can fill by itself starts on "Default"; one it cannot asks for a value.
std::string_view initialInsertMode(const ColumnInfo &column)
{
    const bool serverFills = column.nullable || column.defaultValue || column.generated()
        || QString::fromStdString(column.extra).contains(QStringLiteral("auto_increment"), Qt::CaseInsensitive);
    return serverFills ? insertModeDefault : insertModeValue;
}

} // namespace

ManagementForm::ManagementForm(ServerSession &session,
    UserPrompts &prompts,
    ManagementSheet kind,
    const std::optional<ColumnInfo> &column,
    QWidget *parent)
    : JobDialog(session,
        text(formTitle(kind)),
        kind == ManagementSheet::createUser ? QStringLiteral("Create user") : QStringLiteral("Apply"),
        parent)
    , m_prompts(prompts)
    , m_kind(kind)
    , m_column(column)
    , m_context { session.database(), session.selectedTable(), session.columns() }
    , m_preview(new QPlainTextEdit)
{
    Q_ASSERT(kind != ManagementSheet::importCSV);
    const bool columnRows = kind == ManagementSheet::createTable || kind == ManagementSheet::addColumn
        || kind == ManagementSheet::modifyColumn;
    setMinimumWidth(columnRows ? 820 : 540);

    QVBoxLayout *root = content();
    if (needsDatabase(kind)) {
        root->addWidget(captionLabel(needsTable(kind)
                ? QStringLiteral("Table %1.%2").arg(text(m_context.database), text(m_context.table))
                : QStringLiteral("Database %1").arg(text(m_context.database))));
    }

    buildFields(root);

    m_preview->setObjectName(QStringLiteral("preview"));
    m_preview->setReadOnly(true);
    m_preview->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_preview->setMinimumHeight(90);
    m_preview->setPlaceholderText(QStringLiteral("The SQL to apply appears here."));
    root->addWidget(new QLabel(QStringLiteral("Generated SQL")));
    root->addWidget(m_preview, 1);

    refresh();
    updateButtons();
    m_opened = true;
}

void ManagementForm::buildFields(QVBoxLayout *layout)
{
    auto *form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    layout->addLayout(form);
    const auto watch = [this](QLineEdit *field) {
        QObject::connect(field, &QLineEdit::textChanged, this, &ManagementForm::refresh);
    };

    if (m_kind != ManagementSheet::addColumn && m_kind != ManagementSheet::modifyColumn
        && m_kind != ManagementSheet::insertRow) {
        m_name = new QLineEdit;
        m_name->setObjectName(QStringLiteral("name"));
        watch(m_name);
    }

    switch (m_kind) {
    case ManagementSheet::createDatabase:
        form->addRow(QStringLiteral("Database name"), m_name);
        m_charset = new QComboBox;
        m_charset->setObjectName(QStringLiteral("charset"));
        for (const std::string &charset : characterSets()) {
            const QString name = text(charset);
            m_charset->addItem(
                m_charset->count() == 0 ? QStringLiteral("%1 (recommended)").arg(name) : name, QVariant(name));
        }
        QObject::connect(m_charset, &QComboBox::currentIndexChanged, this, &ManagementForm::refresh);
        form->addRow(QStringLiteral("Character set"), m_charset);
        break;
    case ManagementSheet::createTable: {
        form->addRow(QStringLiteral("Table name"), m_name);
        ColumnDraft id;
        id.name = "id";
        id.type = "BIGINT UNSIGNED";
        id.nullable = false;
        id.primary = true;
        id.autoIncrement = true;
        m_columns = new ColumnDraftEditor({ id }, true);
        break;
    }
    case ManagementSheet::addColumn:
        m_columns = new ColumnDraftEditor({ ColumnDraftEditor::newColumn() }, false);
        break;
    case ManagementSheet::modifyColumn:
        m_columns
            = new ColumnDraftEditor({ m_column ? draftFromColumn(*m_column) : ColumnDraftEditor::newColumn() }, false);
        break;
    case ManagementSheet::addIndex:
        form->addRow(QStringLiteral("Index name"), m_name);
        m_unique = new QCheckBox(QStringLiteral("Unique"));
        m_unique->setObjectName(QStringLiteral("unique"));
        QObject::connect(m_unique, &QCheckBox::toggled, this, &ManagementForm::refresh);
        form->addRow(QString(), m_unique);
        layout->addWidget(new QLabel(QStringLiteral("Columns")));
        layout->addWidget(indexFields());
        break;
    case ManagementSheet::insertRow:
        layout->addWidget(insertFields());
        layout->addWidget(captionLabel(text(insertDefaultHelp)));
        break;
    case ManagementSheet::createUser:
        form->addRow(QStringLiteral("Username"), m_name);
        m_host = new QLineEdit(QStringLiteral("%"));
        m_host->setObjectName(QStringLiteral("host"));
        watch(m_host);
        form->addRow(QStringLiteral("Client host"), m_host);
        m_password = new QLineEdit;
        m_password->setObjectName(QStringLiteral("password"));
        m_password->setEchoMode(QLineEdit::Password);
        watch(m_password);
        form->addRow(QStringLiteral("Password"), m_password);
        layout->addWidget(captionLabel(QStringLiteral("The account starts without privileges; grant them in SQL.")));
        break;
    case ManagementSheet::importCSV:
        break;
    }

    if (m_columns) {
        QObject::connect(m_columns, &ColumnDraftEditor::edited, this, &ManagementForm::refresh);
        layout->addWidget(m_columns);
    }
}

QWidget *ManagementForm::indexFields()
{
    auto *box = new QWidget;
    auto *grid = new QGridLayout(box);
    grid->setContentsMargins(0, 0, 0, 0);
    constexpr int perLine = 3;
    int index = 0;
    for (const ColumnInfo &column : m_context.columns) {
        auto *toggle = new QCheckBox(text(column.name));
        toggle->setObjectName(QStringLiteral("index:") + text(column.name));
        QObject::connect(toggle, &QCheckBox::toggled, this, &ManagementForm::refresh);
        grid->addWidget(toggle, index / perLine, index % perLine);
        m_indexColumns.emplace_back(column.name, toggle);
        ++index;
    }
    return box;
}

QWidget *ManagementForm::insertFields()
{
    auto *box = new QWidget;
    auto *grid = new QGridLayout(box);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setColumnStretch(2, 1);
    int line = 0;
    for (const ColumnInfo &column : m_context.columns) {
        const QString name = text(column.name);
        auto *label = new QLabel(name);
        label->setToolTip(text(column.type));
        auto *mode = new QComboBox;
        mode->setObjectName(QStringLiteral("mode:") + name);
        for (std::string_view option : { insertModeDefault, insertModeNull, insertModeValue }) {
            mode->addItem(text(option));
        }
        mode->setCurrentText(text(initialInsertMode(column)));
        auto *value = new QLineEdit;
        value->setObjectName(QStringLiteral("value:") + name);
        value->setPlaceholderText(text(column.type));
        if (column.generated()) {
            // The server computes these; naming one in an INSERT is an error.
            mode->setEnabled(false);
            value->setEnabled(false);
            value->setPlaceholderText(QStringLiteral("generated"));
        }
        // Typing a value means the value is meant to be sent.
        QObject::connect(value, &QLineEdit::textEdited, mode, [mode] { mode->setCurrentText(text(insertModeValue)); });
        QObject::connect(value, &QLineEdit::textChanged, this, &ManagementForm::refresh);
        QObject::connect(mode, &QComboBox::currentIndexChanged, this, &ManagementForm::refresh);
        grid->addWidget(label, line, 0);
        grid->addWidget(mode, line, 1);
        grid->addWidget(value, line, 2);
        m_insertFields.push_back({ column.name, mode, value });
        ++line;
    }
    // A wide table must not push the preview and buttons off the screen.
    auto *scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(box);
    scroll->setMinimumHeight(std::min(line, 8) * 34);
    return scroll;
}

ManagementDraft ManagementForm::draft() const
{
    ManagementDraft result;
    result.kind = m_kind;
    result.column = m_column;
    if (m_name) {
        // Account names are taken as typed; only object names are trimmed.
        result.name = m_kind == ManagementSheet::createUser ? m_name->text().toStdString() : trimmedName(m_name);
    }
    if (m_charset) {
        result.charset = m_charset->currentData().toString().toStdString();
    }
    if (m_unique) {
        result.unique = m_unique->isChecked();
    }
    if (m_columns) {
        result.columns = m_columns->drafts();
        for (ColumnDraft &column : result.columns) {
            column.name = std::string(trimWhitespace(column.name));
        }
    }
    for (const auto &[column, toggle] : m_indexColumns) {
        if (toggle->isChecked()) {
            result.selected.insert(column);
        }
    }
    for (const InsertField &field : m_insertFields) {
        result.valueModes[field.column] = field.mode->currentText().toStdString();
        result.values[field.column] = field.value->text().toStdString();
    }
    if (m_host) {
        result.host = m_host->text().toStdString();
    }
    if (m_password) {
        result.password = m_password->text().toStdString();
    }
    return result;
}

QString ManagementForm::previewText() const
{
    return m_preview->toPlainText();
}

void ManagementForm::requireTarget() const
{
    if (needsDatabase(m_kind) && m_context.database.empty()) {
        throw AppError("Choose a database first.");
    }
    if (needsTable(m_kind) && m_context.table.empty()) {
        throw AppError("Choose a table first.");
    }
}

void ManagementForm::refresh()
{
    try {
        requireTarget();
    } catch (const AppError &refusal) {
        m_preview->clear();
        setErrorText(QString::fromStdString(refusal.message()));
        return;
    }
    try {
        m_preview->setPlainText(text(generatedSQL(draft(), m_context)));
        setErrorText({});
    } catch (const AppError &refusal) {
        m_preview->clear();
        // A form nobody has touched yet is not a mistake: what is missing is said once the
        // person edits a field or presses the acting button.
        setErrorText(m_opened ? QString::fromStdString(refusal.message()) : QString());
    }
}

void ManagementForm::apply()
{
    if (!idle()) {
        return;
    }
    const ManagementDraft current = draft();
    std::string sql;
    try {
        requireTarget();
        if (m_kind == ManagementSheet::createUser) {
            checkUserFields(current);
        }
        sql = generatedSQL(current, m_context);
    } catch (const AppError &refusal) {
        setErrorText(QString::fromStdString(refusal.message()));
        return;
    }

    const ConnectionProfile profile = session()->profile();
    const bool confirmed = m_kind == ManagementSheet::createUser
        ? m_prompts.confirmAction(
            std::string(createUserConfirmTitle), createUserDetail(current, profile), "Create user")
        : m_prompts.confirmSQL(sql, reviewTitle(m_kind), reviewDetail(m_kind, profile, m_context));
    // The review is modal: the session may have gone or started other work meanwhile.
    if (!confirmed) {
        return;
    }
    startJob([this, &current, &sql](ServerSession &target, ServerSession::Finished done) {
        if (m_kind == ManagementSheet::createUser) {
            target.createUser(current.name, current.host, current.password, std::move(done));
        } else {
            target.applyChange(m_kind, sql, m_context.database, m_context.table, std::move(done));
        }
    });
}

} // namespace tallowick
