#pragma once

#include "management/CsvImport.h"
#include "management/ManagementDraft.h"
#include "ui/JobDialog.h"

#include <memory>
#include <string>

class QCheckBox;
class QLabel;
class QPushButton;
class QTableWidget;

namespace tallowick
{

class UserPrompts;

// Imports a UTF-8 CSV file into the session's selected table. Loading a file plans it from its
// first megabytes at once (header mapped onto the table's columns, first rows previewed; a small
// file is checked whole, so its refusals show before anything is sent); the import itself is one
// job on the session's lane that streams the file and inserts all rows in one transaction or
// none of them.
//
// The target table is taken from the session when the form opens. Main thread only; `prompts`
// must outlive the form, the session need not.
class CsvImportForm final : public JobDialog
{
    Q_OBJECT

public:
    CsvImportForm(ServerSession &session, UserPrompts &prompts, QWidget *parent = nullptr);

    bool loadFile(const QString &path); // plans and previews; false with the refusal shown inline
    void apply();

    // Asks for a file and loads it; nothing changes when the person cancels.
    void chooseFile();
    QString mappingText() const;

private:
    bool plan();
    void showPlan();
    void updateButtons() override;
    void act() override { apply(); }

    UserPrompts &m_prompts;
    const ManagementContext m_context;
    const bool m_readOnly;
    std::string m_path; // the loaded file, kept so the NULL toggle can plan it again
    std::shared_ptr<const CsvImportPlan> m_plan; // shared with the running import

    QLabel *m_fileName;
    QPushButton *m_choose;
    QCheckBox *m_nullMarker;
    QLabel *m_mapping;
    QLabel *m_rowCount;
    QTableWidget *m_preview;
};

} // namespace tallowick
