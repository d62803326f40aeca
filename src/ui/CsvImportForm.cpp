#include "ui/CsvImportForm.h"

#include "core/AppError.h"
#include "core/FileText.h"
#include "management/ManagementSQL.h"
#include "session/CsvImportRun.h"
#include "session/ServerSession.h"
#include "session/UserPrompts.h"
#include "ui/FormParts.h"
#include "ui/Theme.h"

#include <QCheckBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace tallowick
{

namespace
{

const char *const readOnlyMessage = "This connection is read-only.";

} // namespace

CsvImportForm::CsvImportForm(ServerSession &session, UserPrompts &prompts, QWidget *parent)
    : JobDialog(session, text(formTitle(ManagementSheet::importCSV)), QStringLiteral("Import"), parent)
    , m_prompts(prompts)
    , m_context { session.database(), session.selectedTable(), session.columns() }
    , m_readOnly(session.profile().readOnly)
    , m_fileName(new QLabel(QStringLiteral("No file chosen")))
    , m_choose(new QPushButton(QStringLiteral("Choose file…")))
    , m_nullMarker(new QCheckBox(text(csvNullOptionTitle)))
    , m_mapping(captionLabel())
    , m_rowCount(captionLabel())
    , m_preview(new QTableWidget)
{
    setMinimumSize(640, 480);

    QVBoxLayout *root = content();
    root->addWidget(captionLabel(
        QStringLiteral("Into table %1.%2. The first row names the columns; every row goes in, or none does.")
            .arg(text(m_context.database), text(m_context.table))));

    m_choose->setObjectName(QStringLiteral("choose"));
    m_fileName->setObjectName(QStringLiteral("fileName"));
    auto *fileRow = new QHBoxLayout;
    fileRow->addWidget(m_choose);
    fileRow->addWidget(m_fileName, 1);
    root->addLayout(fileRow);

    m_nullMarker->setObjectName(QStringLiteral("nullMarker"));
    m_nullMarker->setChecked(true);
    root->addWidget(m_nullMarker);
    m_mapping->setObjectName(QStringLiteral("mapping"));
    root->addWidget(m_mapping);

    m_preview->setObjectName(QStringLiteral("preview"));
    m_preview->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_preview->setSelectionMode(QAbstractItemView::NoSelection);
    m_preview->verticalHeader()->setDefaultSectionSize(22);
    root->addWidget(m_preview, 1);
    m_rowCount->setObjectName(QStringLiteral("rowCount"));
    root->addWidget(m_rowCount);

    QObject::connect(m_choose, &QPushButton::clicked, this, &CsvImportForm::chooseFile);
    QObject::connect(m_nullMarker, &QCheckBox::toggled, this, [this] {
        if (!m_path.empty()) {
            plan();
        }
    });

    if (m_readOnly) {
        setErrorText(QString::fromUtf8(readOnlyMessage));
    } else if (m_context.table.empty()) {
        setErrorText(QStringLiteral("Choose a table first."));
    }
    showPlan();
}

void CsvImportForm::chooseFile()
{
    if (const std::optional<std::string> path = m_prompts.chooseFileToOpen(UserPrompts::FileKind::csv)) {
        loadFile(QString::fromStdString(*path));
    }
}

bool CsvImportForm::loadFile(const QString &path)
{
    m_path.clear();
    m_plan.reset();
    m_fileName->setText(QFileInfo(path).fileName());
    if (m_readOnly) {
        showPlan();
        setErrorText(QString::fromUtf8(readOnlyMessage));
        return false;
    }
    if (m_context.table.empty()) {
        showPlan();
        setErrorText(QStringLiteral("Choose a table first."));
        return false;
    }
    m_path = path.toStdString();
    const bool planned = plan();
    if (!planned) {
        // Nothing the NULL option changes can make this file acceptable.
        m_path.clear();
    }
    return planned;
}

bool CsvImportForm::plan()
{
    try {
        // Reads at most the planning size, so even a huge file answers at once.
        m_plan = std::make_shared<const CsvImportPlan>(
            planCsvImportFile(m_path, m_context.columns, m_nullMarker->isChecked()));
    } catch (const AppError &refusal) {
        m_plan.reset();
        showPlan();
        setErrorText(QString::fromStdString(refusal.message()));
        return false;
    }
    setErrorText({});
    showPlan();
    return true;
}

QString CsvImportForm::mappingText() const
{
    return m_mapping->text();
}

void CsvImportForm::showPlan()
{
    m_preview->clear();
    if (!m_plan) {
        m_preview->setRowCount(0);
        m_preview->setColumnCount(0);
        m_mapping->clear();
        m_rowCount->clear();
        updateButtons();
        return;
    }
    QStringList mapping;
    QStringList headings;
    for (std::size_t i = 0; i < m_plan->header.size(); ++i) {
        const QString header = text(m_plan->header[i]);
        const QString column = text(m_plan->columns[i]);
        mapping << (header == column ? column : QStringLiteral("%1 → %2").arg(header, column));
        headings << column;
    }
    m_mapping->setText(QStringLiteral("Columns: ") + mapping.join(QStringLiteral(", ")));

    const std::vector<Row> &rows = m_plan->preview;
    m_preview->setColumnCount(static_cast<int>(headings.size()));
    m_preview->setHorizontalHeaderLabels(headings);
    m_preview->setRowCount(static_cast<int>(rows.size()));
    QFont nullFont = m_preview->font();
    nullFont.setItalic(true);
    for (std::size_t row = 0; row < rows.size(); ++row) {
        for (std::size_t column = 0; column < rows[row].size(); ++column) {
            const Cell &cell = rows[row][column];
            auto *item = new QTableWidgetItem(cell ? text(*cell) : QStringLiteral("NULL"));
            if (!cell) {
                item->setFont(nullFont);
                item->setForeground(secondaryTextColor());
            }
            m_preview->setItem(static_cast<int>(row), static_cast<int>(column), item);
        }
    }
    if (const std::optional<std::size_t> total = m_plan->rowCount) {
        m_rowCount->setText(total > rows.size() ? QStringLiteral("%1 to import; the first %2 are shown.")
                                                      .arg(text(csvRowCountText(*total)))
                                                      .arg(rows.size())
                                                : text(csvRowCountText(*total) + " to import."));
    } else {
        m_rowCount->setText(QStringLiteral("The first %1 rows of %2 are shown. Every row is checked as it goes in; "
                                           "a refused row leaves the table as it was.")
                                .arg(rows.size())
                                .arg(text(byteText(m_plan->fileBytes))));
    }
    updateButtons();
}

void CsvImportForm::apply()
{
    if (m_readOnly) {
        setErrorText(QString::fromUtf8(readOnlyMessage));
        return;
    }
    if (!m_plan) {
        if (errorText().isEmpty()) {
            setErrorText(QStringLiteral("Choose a CSV file first."));
        }
        return;
    }
    // A failure rolls the whole import back; its message stays next to the fields.
    startJob([this](ServerSession &target, ServerSession::Finished done) {
        target.importCSV(m_plan, m_path, m_context.database, m_context.table, std::move(done));
    });
}

void CsvImportForm::updateButtons()
{
    const bool ready = !m_readOnly && idle();
    m_choose->setEnabled(ready);
    m_nullMarker->setEnabled(ready);
    actButton()->setEnabled(ready && m_plan != nullptr);
}

} // namespace tallowick
