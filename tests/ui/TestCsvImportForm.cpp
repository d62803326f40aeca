#include "client/ClientThreadScope.h"
#include "support/Checks.h"
#include "support/SessionHarness.h"
#include "ui/CsvImportForm.h"

#include <QCheckBox>
#include <QFile>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

// The CSV import form over a session with a scratch table selected: what it shows, refuses and
// hands to the session. Planning and the import itself are tested in tests/management and
// tests/session.
class TestCsvImportForm final : public QObject
{
    Q_OBJECT

    ClientThreadScope m_clientThread; // the scratch database is read from this thread
    SessionHarness m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session; // connected, with the table people selected
    QTemporaryDir m_folder;

    QString writeFile(const QByteArray &bytes)
    {
        QFile file(m_folder.filePath(QUuid::createUuid().toString(QUuid::Id128) + QStringLiteral(".csv")));
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() ? file.fileName() : QString();
    }
    template <typename T = QPushButton> static T *part(const CsvImportForm &form, const char *name)
    {
        return form.findChild<T *>(QString::fromLatin1(name));
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_scratch = std::make_unique<ScratchDatabase>(m_harness.server);
        m_scratch->run("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(100) NOT NULL, note TEXT NULL, "
                       "doubled INT AS (id * 2) VIRTUAL) ENGINE=InnoDB");
        m_session = m_harness.session(m_harness.profile());
        QVERIFY(connectAndSettle(*m_session));
        m_session->selectTable("people", m_scratch->name());
        QVERIFY(settle(*m_session) && m_session->selectedTable() == "people");
    }

    void cleanupTestCase()
    {
        m_session.reset();
        m_scratch.reset();
    }

    void importFollowsTheNullToggle()
    {
        CsvImportForm form(*m_session, m_harness.prompts);
        auto *toggle = part<QCheckBox>(form, "nullMarker");
        auto *preview = part<QTableWidget>(form, "preview");
        toggle->setChecked(false);
        const QString path = writeFile("id,name,NOTE\r\n1,\"Smith, \"\"Jo\"\"\",\\N\n2,O'Brien,\"\"\n");
        m_harness.prompts.files = { path.toStdString() };
        part(form, "choose")->click();
        QCOMPARE(form.mappingText(), QStringLiteral("Columns: id, name, NOTE → note"));
        QCOMPARE(preview->item(0, 2)->text(), QStringLiteral("\\N"));
        // Switched after loading: the preview and the import follow the toggle.
        toggle->setChecked(true);
        QCOMPARE(preview->item(0, 2)->text(), QStringLiteral("NULL"));
        QCOMPARE(preview->rowCount(), 2);
        // A cancelled second choice keeps the file loaded.
        m_harness.prompts.files = { std::nullopt };
        part(form, "choose")->click();
        QCOMPARE(m_harness.prompts.asked.size(), std::size_t(2));

        QStringList statuses;
        const QObject listening;
        QObject::connect(m_session.get(), &ServerSession::statusChanged, &listening, [this, &statuses] {
            statuses << QString::fromStdString(m_session->status());
        });
        part(form, "apply")->click();
        QVERIFY(settle(*m_session));
        QCOMPARE(form.errorText(), QString());
        QCOMPARE(form.result(), int(QDialog::Accepted));
        QCOMPARE(rowTexts(m_scratch->run("SELECT id, name, note FROM people").rows),
            (QStringList { "1|Smith, \"Jo\"|<null>", "2|O'Brien|" }));
        QCOMPARE(m_session->tableResult().rows.size(), std::size_t(2)); // the shown page was reloaded
        QVERIFY2(statuses.contains("Importing CSV… 2 of 2 rows") && statuses.contains("Imported 2 rows into people"),
            qPrintable(statuses.join(u'|')));
    }

    void refusalsSendNothing()
    {
        // Every reason is checked on the plan; the generated column needs the live table.
        const std::pair<QByteArray, QString> cases[] = {
            { "id,name\n", "The CSV is empty." },
            { "id,doubled\n1,2\n", "Unknown or generated column in CSV header: doubled" },
        };
        for (const auto &[csv, expected] : cases) {
            CsvImportForm form(*m_session, m_harness.prompts);
            QVERIFY(!form.loadFile(writeFile(csv)));
            QCOMPARE(form.errorText(), expected);
            QCOMPARE(part<QTableWidget>(form, "preview")->rowCount(), 0);
            QVERIFY(!part(form, "apply")->isEnabled());
            part<QCheckBox>(form, "nullMarker")->toggle(); // does not bring a refused file back
            QCOMPARE(form.errorText(), expected);
            QSignalSpy statuses(m_session.get(), &ServerSession::statusChanged);
            form.apply();
            QCOMPARE(statuses.count(), 0);
        }
    }

    void readOnlyProfileRefusesBeforeReading()
    {
        ConnectionProfile profile = m_harness.profile("Read-only");
        profile.readOnly = true;
        const auto readOnly = m_harness.session(profile);
        CsvImportForm form(*readOnly, m_harness.prompts);
        QCOMPARE(form.errorText(), QStringLiteral("This connection is read-only."));
        QVERIFY(!part(form, "choose")->isEnabled());
        QVERIFY(!form.loadFile(writeFile("id,name\n1,a\n")));
        QCOMPARE(form.errorText(), QStringLiteral("This connection is read-only."));
        QVERIFY(!part(form, "apply")->isEnabled());
    }

    // Last, as it disconnects the session, whose requests then fail at once.
    void failureStaysInTheOpenForm()
    {
        CsvImportForm form(*m_session, m_harness.prompts);
        form.show();
        QVERIFY(form.loadFile(writeFile("id,name\n7,seven\n")));
        m_session->disconnect();
        QVERIFY(settle(*m_session));
        part(form, "apply")->click();
        QCOMPARE(form.errorText(), QStringLiteral("Connect to this server first."));
        QVERIFY(form.isVisible() && part(form, "apply")->isEnabled());
    }
};

QTEST_MAIN(TestCsvImportForm)
#include "TestCsvImportForm.moc"
