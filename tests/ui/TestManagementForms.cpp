#include "client/ClientThreadScope.h"
#include "client/MySQLConnection.h"
#include "support/Checks.h"
#include "support/SessionHarness.h"
#include "ui/ColumnDraftEditor.h"
#include "ui/CsvImportForm.h"
#include "ui/ManagementForm.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

using namespace tallowick;
using namespace tallowick::test;

// The management forms and the CSV import form: the statement they show for the typed fields or
// the file they read, what they refuse, what they ask, and when they send. The statements, import
// plans and the import itself are tested in tests/management and tests/session; a disconnected
// session, whose requests fail at once, stands in where no server is needed.
class TestManagementForms final : public QObject
{
    Q_OBJECT

    ClientThreadScope m_clientThread;
    SessionHarness m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session; // connected, with the scratch table orders selected
    std::unique_ptr<ServerSession> m_offline = m_harness.session(m_harness.server.profile());
    const std::string m_user = "tw_form_" + QUuid::createUuid().toString(QUuid::Id128).left(8).toStdString();
    QTemporaryDir m_folder;

    template <typename T = QLineEdit> static T *part(const QWidget &form, const QString &name)
    {
        return form.findChild<T *>(name);
    }
    QString writeFile(const QByteArray &bytes)
    {
        QFile file(m_folder.filePath(QUuid::createUuid().toString(QUuid::Id128) + QStringLiteral(".csv")));
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() ? file.fileName() : QString();
    }
    // Clicks Import and waits for the job, collecting the statuses the session showed meanwhile.
    QStringList importAndWatch(CsvImportForm &form)
    {
        QStringList statuses;
        const QObject listening;
        QObject::connect(m_session.get(), &ServerSession::statusChanged, &listening, [this, &statuses] {
            statuses << QString::fromStdString(m_session->status());
        });
        part<QPushButton>(form, "apply")->click();
        if (!settle(*m_session)) {
            statuses << QStringLiteral("(the import never finished)");
        }
        return statuses;
    }
    static ColumnDraftEditor *columns(const ManagementForm &form) { return form.findChild<ColumnDraftEditor *>(); }
    std::unique_ptr<ManagementForm> open(ManagementSheet kind, ServerSession *session = nullptr)
    {
        m_harness.prompts = ScriptedPrompts();
        return std::make_unique<ManagementForm>(session ? *session : *m_session, m_harness.prompts, kind);
    }

    // Clicks the acting button, with the review answered from `answers`.
    void apply(ManagementForm &form, std::deque<bool> answers)
    {
        m_harness.prompts.confirmations = std::move(answers);
        part<QPushButton>(form, "apply")->click();
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_scratch = std::make_unique<ScratchDatabase>(m_harness.server);
        m_scratch->run("CREATE TABLE orders (id INT AUTO_INCREMENT PRIMARY KEY, name VARCHAR(100) NOT NULL, "
                       "total DECIMAL(10,2) NULL, note TEXT NULL, doubled INT AS (id * 2) VIRTUAL) ENGINE=InnoDB");
        m_session = m_harness.session(m_harness.profile());
        QVERIFY(connectAndSettle(*m_session));
        m_session->selectTable("orders", m_scratch->name());
        QVERIFY(settle(*m_session) && m_session->columns().size() == 5);
    }

    void cleanupTestCase() { m_scratch->run("DROP USER IF EXISTS '" + m_user + "'@'%'"); }

    void previewFollowsTheFields()
    {
        const QString database = QStringLiteral("`%1`.").arg(QString::fromStdString(m_scratch->name()));
        // The label of the recommended set must not leak into the statement; object names are trimmed.
        auto form = open(ManagementSheet::createDatabase);
        part(*form, "name")->setText(" new`db ");
        QCOMPARE(form->previewText(), "CREATE DATABASE `new``db` CHARACTER SET utf8mb4;");
        // A row added and removed again must not reach the statement.
        form = open(ManagementSheet::createTable);
        part(*form, "name")->setText("it's new");
        columns(*form)->addButton()->click();
        columns(*form)->addButton()->click();
        columns(*form)->nameField(1)->setText("who");
        columns(*form)->removeRow(2);
        QCOMPARE(form->previewText(),
            "CREATE TABLE " + database
                + "`it's new` (\n  `id` BIGINT UNSIGNED NOT NULL AUTO_INCREMENT,\n  `who` VARCHAR(255) NULL,\n  "
                  "PRIMARY KEY (`id`)\n) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;");
        form = open(ManagementSheet::addIndex);
        part(*form, "name")->setText("by total");
        part<QCheckBox>(*form, "unique")->setChecked(true);
        part<QCheckBox>(*form, "index:total")->setChecked(true);
        QCOMPARE(form->previewText(), "CREATE UNIQUE INDEX `by total` ON " + database + "`orders` (`total`);");
        // Typing switches a column to Value.
        form = open(ManagementSheet::insertRow);
        QTest::keyClicks(part(*form, "value:total"), "12.5");
        part<QComboBox>(*form, "mode:name")->setCurrentText("NULL");
        QCOMPARE(form->previewText(), "INSERT INTO " + database + "`orders` (`name`, `total`)\nVALUES (NULL, '12.5');");
        // Account names are taken as typed.
        form = open(ManagementSheet::createUser);
        part(*form, "name")->setText(" bob");
        part(*form, "password")->setText("pw'1");
        QCOMPARE(form->previewText(), "CREATE USER ' bob'@'%' IDENTIFIED BY CONVERT(X'70772731' USING utf8mb4);");
    }

    // A form nobody has typed in yet names nothing as missing; an edit, or the acting button,
    // brings the refusal.
    void refusalsWaitForTheUser()
    {
        for (const bool edit : { true, false }) {
            const auto form = open(ManagementSheet::createTable);
            QCOMPARE(form->errorText(), QString());
            QVERIFY(form->previewText().isEmpty());
            if (edit) {
                QTest::keyClicks(part(*form, "name"), "x");
                QTest::keyClick(part(*form, "name"), Qt::Key_Backspace);
            } else {
                apply(*form, { true });
            }
            QCOMPARE(form->errorText(), QStringLiteral("Enter a table name."));
            QVERIFY(m_harness.prompts.asked.empty());
        }
    }

    // Refused fields ask and send nothing. Then a schema change asks to review its statement, an
    // account its own question; declined, nothing is sent; confirmed, the disconnected session's
    // refusal shows in the open form.
    void reviewDecidesWhatIsSent()
    {
        const auto table = open(ManagementSheet::createTable, m_offline.get());
        apply(*table, { true });
        QVERIFY(table->errorText() == "Choose a database first." && m_harness.prompts.asked.empty());
        for (const auto kind : { ManagementSheet::createDatabase, ManagementSheet::createUser }) {
            const auto form = open(kind, m_offline.get());
            form->show();
            const bool user = kind == ManagementSheet::createUser;
            apply(*form, { true }); // nothing typed; the host starts as "%"
            QCOMPARE(
                form->errorText(), user ? "Enter a username, client host, and password." : "Enter a database name.");
            QVERIFY(m_harness.prompts.asked.empty() && form->previewText().isEmpty());
            part(*form, "name")->setText("kept_out");
            if (user) {
                part(*form, "password")->setText("pw");
            }
            apply(*form, { false });
            QCOMPARE(m_harness.prompts.asked.size(), std::size_t(1));
            QCOMPARE(m_harness.prompts.asked[0].kind, std::string(user ? "action" : "sql"));
            QVERIFY(user || m_harness.prompts.asked[0].text == form->previewText().toStdString());
            QCOMPARE(form->errorText(), QString());

            apply(*form, { true });
            QCOMPARE(form->errorText(), QStringLiteral("Connect to this server first."));
            QVERIFY(form->isVisible() && part<QPushButton>(*form, "apply")->isEnabled());
        }
    }

    // A schema change waits while the session is busy; then the form closes and the session shows
    // the new column, named without the blanks typed around it. An account goes through a session
    // operation of its own: the typed name, host and password arrive there, and the user list is
    // reloaded.
    void appliedChangesCloseTheFormAndReload()
    {
        auto form = open(ManagementSheet::addColumn);
        columns(*form)->nameField(0)->setText(" shipped ");
        auto *button = part<QPushButton>(*form, "apply");
        m_session->run("SELECT 1"); // busy at once, idle only through the event loop
        QVERIFY(m_session->busy() && !button->isEnabled());
        form->apply();
        QVERIFY(m_harness.prompts.asked.empty());
        QVERIFY(settle(*m_session) && button->isEnabled());
        apply(*form, { true });
        QVERIFY(settle(*m_session));
        QVERIFY2(form->result() == QDialog::Accepted, qPrintable(form->errorText()));
        QCOMPARE(m_session->tableResult().columnNames().back(), std::string("shipped"));

        form = open(ManagementSheet::createUser);
        part(*form, "name")->setText(QString::fromStdString(m_user));
        part(*form, "password")->setText("it's \"secret\"");
        apply(*form, { true });
        QVERIFY(settle(*m_session));
        QVERIFY2(form->result() == QDialog::Accepted, qPrintable(form->errorText()));
        QVERIFY(
            std::ranges::any_of(m_session->metadata().rows, [this](const Row &row) { return row.at(0) == m_user; }));
        ConnectionProfile login = m_harness.server.profile();
        login.user = m_user;
        QCOMPARE(errorFrom([&] { MySQLConnection(login).connect("it's \"secret\""); }), QStringLiteral("(no error)"));
    }

    // A refused file replaces the plan of the one before (the generated column is known only from
    // the live table); the preview and the import follow the file and the NULL option.
    void csvImportFollowsTheFileAndTheNullToggle()
    {
        m_harness.prompts = ScriptedPrompts();
        CsvImportForm form(*m_session, m_harness.prompts);
        auto *toggle = part<QCheckBox>(form, "nullMarker");
        auto *preview = part<QTableWidget>(form, "preview");
        QVERIFY(form.loadFile(writeFile("id,name\n9,nine\n")));
        QVERIFY(!form.loadFile(writeFile("id,doubled\n1,2\n")));
        QCOMPARE(form.errorText(), QStringLiteral("Unknown or generated column in CSV header: doubled"));
        QVERIFY(preview->rowCount() == 0 && !part<QPushButton>(form, "apply")->isEnabled());
        toggle->setChecked(false);
        const QString path = writeFile("id,name,NOTE\r\n1,\"Smith, \"\"Jo\"\"\",\\N\n2,O'Brien,\"\"\n");
        m_harness.prompts.files = { path.toStdString(), std::nullopt };
        part<QPushButton>(form, "choose")->click();
        QCOMPARE(form.mappingText(), QStringLiteral("Columns: id, name, NOTE → note"));
        QCOMPARE(preview->item(0, 2)->text(), QStringLiteral("\\N"));
        toggle->setChecked(true);
        QCOMPARE(preview->item(0, 2)->text(), QStringLiteral("NULL"));
        QCOMPARE(preview->rowCount(), 2);
        part<QPushButton>(form, "choose")->click(); // cancelled: the file stays loaded
        QCOMPARE(m_harness.prompts.asked.size(), std::size_t(2));

        const QStringList statuses = importAndWatch(form);
        QVERIFY2(form.result() == QDialog::Accepted, qPrintable(form.errorText()));
        QCOMPARE(rowTexts(m_scratch->run("SELECT id, name, note FROM orders").rows),
            (QStringList { "1|Smith, \"Jo\"|<null>", "2|O'Brien|" }));
        QCOMPARE(m_session->tableResult().rows.size(), std::size_t(2)); // the shown page was reloaded
        QVERIFY2(statuses.contains("Importing CSV… 2 of 2 rows") && statuses.contains("Imported 2 rows into orders"),
            qPrintable(statuses.join(u'|')));
    }

    // A file larger than what choosing it reads: the form previews its start and names its size,
    // and the import streams all of it with the bytes done in the status.
    void csvImportOfAFileLargerThanItsPreview()
    {
        m_scratch->run("DELETE FROM orders");
        QByteArray bytes = "id,name,total\n";
        int rows = 0;
        while (bytes.size() <= 4'500'000) {
            ++rows;
            bytes += QByteArray::number(rows) + ",customer number " + QByteArray::number(rows) + ",7\n";
        }
        m_harness.prompts = ScriptedPrompts();
        CsvImportForm form(*m_session, m_harness.prompts);
        QVERIFY2(form.loadFile(writeFile(bytes)), qPrintable(form.errorText()));
        QCOMPARE(part<QLabel>(form, "rowCount")->text(),
            QStringLiteral("The first 20 rows of 4.5 MB are shown. Every row is checked as it goes in; a refused "
                           "row leaves the table as it was."));
        QCOMPARE(part<QTableWidget>(form, "preview")->rowCount(), 20);

        const QStringList statuses = importAndWatch(form);
        QVERIFY2(form.result() == QDialog::Accepted, qPrintable(form.errorText()));
        QCOMPARE(rowTexts(m_scratch->run("SELECT COUNT(*), MAX(id) FROM orders").rows),
            QStringList(QString::number(rows) + u'|' + QString::number(rows)));
        QVERIFY2(statuses.contains(QStringLiteral("Importing CSV… %1 rows · 4.5 MB of 4.5 MB").arg(rows)),
            qPrintable(statuses.join(u'|')));
    }
};

QTEST_MAIN(TestManagementForms)
#include "TestManagementForms.moc"
