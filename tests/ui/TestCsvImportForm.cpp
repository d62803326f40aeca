#include "client/ClientThreadScope.h"
#include "core/SqlQuoting.h"
#include "management/CsvImport.h"
#include "support/Checks.h"
#include "support/SessionHarness.h"
#include "ui/CsvImportForm.h"

#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

using namespace tallowick;
using namespace tallowick::test;

// The CSV import form over a live session: files are read, planned and imported into a scratch
// table, and the table is read back from the server.
class TestCsvImportForm final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void importedRowsReadBackExactly_data();
    void importedRowsReadBackExactly();
    void failingRowLeavesTheTableUnchanged();
    void refusals_data();
    void refusals();
    void readOnlyProfileRefuses();
    void cancelledFileChoiceChangesNothing();

private:
    bool connectTo(const ConnectionProfile &profile);
    QString writeFile(const QByteArray &bytes);
    QStringList rows(const std::string &sql) { return rowTexts(m_scratch->run(sql).rows); }
    static QPushButton *button(const CsvImportForm &form, const QString &name)
    {
        return form.findChild<QPushButton *>(name);
    }

    ClientThreadScope m_clientThread; // the scratch database is read from this thread
    std::unique_ptr<SessionHarness> m_harness;
    std::unique_ptr<ScratchDatabase> m_scratch;
    std::unique_ptr<ServerSession> m_session;
    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestCsvImportForm::init()
{
    m_harness = std::make_unique<SessionHarness>();
    m_scratch = std::make_unique<ScratchDatabase>(m_harness->server);
    m_scratch->run("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(100) NOT NULL, note TEXT NULL, "
                   "doubled INT AS (id * 2) VIRTUAL) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4");
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
    QVERIFY(connectTo(m_harness->profile()));
}

void TestCsvImportForm::cleanup()
{
    if (m_session) {
        QVERIFY(settle(*m_session));
    }
    m_session.reset();
    m_folder.reset();
    m_scratch.reset();
    m_harness.reset();
}

bool TestCsvImportForm::connectTo(const ConnectionProfile &profile)
{
    m_session = m_harness->session(profile);
    if (!connectAndSettle(*m_session)) {
        return false;
    }
    m_session->selectTable("people", m_scratch->name());
    return settle(*m_session) && m_session->selectedTable() == "people";
}

QString TestCsvImportForm::writeFile(const QByteArray &bytes)
{
    static int count = 0;
    const QString path = m_folder->filePath(QStringLiteral("import-%1.csv").arg(++count));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        qFatal("Could not write %s", qPrintable(path));
    }
    return path;
}

void TestCsvImportForm::importedRowsReadBackExactly_data()
{
    QTest::addColumn<bool>("nullMarker");
    QTest::addColumn<QString>("note"); // row 2's note as the preview shows it
    QTest::addColumn<QStringList>("expected");

    const QString first = QStringLiteral("1|Smith, \"Jo\"|line one\nline two");
    const QString third = QStringLiteral("3|\U0001F9F9 broom \U0001D11E|");
    QTest::newRow("\\N as SQL NULL") << true << "NULL"
                                     << QStringList { first, "2|O'Brien \\ back|<null>", third, "4|plain|<null>" };
    QTest::newRow("\\N as text") << false << "\\N"
                                 << QStringList { first, "2|O'Brien \\ back|\\N", third, "4|plain|\\N" };
}

void TestCsvImportForm::importedRowsReadBackExactly()
{
    QFETCH(bool, nullMarker);
    QFETCH(QString, note);
    QFETCH(QStringList, expected);

    const QString path = writeFile(QStringLiteral("id,name,NOTE\r\n"
                                                  "1,\"Smith, \"\"Jo\"\"\",\"line one\nline two\"\n"
                                                  "2,O'Brien \\ back,\\N\n"
                                                  "3,\U0001F9F9 broom \U0001D11E,\"\"\n"
                                                  "4,plain,\"\\N\"\n")
                                       .toUtf8());
    CsvImportForm form(*m_session, m_harness->prompts);
    auto *toggle = form.findChild<QCheckBox *>(QStringLiteral("nullMarker"));
    auto *preview = form.findChild<QTableWidget *>(QStringLiteral("preview"));
    // Loaded with the other setting, then switched: the preview and the import must follow the toggle.
    toggle->setChecked(!nullMarker);
    m_harness->prompts.files = { path.toStdString() };
    button(form, QStringLiteral("choose"))->click();
    QVERIFY2(form.errorText().isEmpty(), qPrintable(form.errorText()));
    QCOMPARE(preview->item(1, 2)->text(), nullMarker ? QStringLiteral("\\N") : QStringLiteral("NULL"));
    toggle->setChecked(nullMarker);
    QCOMPARE(form.rowCount(), std::size_t(4));
    QCOMPARE(form.mappingText(), QStringLiteral("Columns: id, name, NOTE → note"));
    QCOMPARE(preview->rowCount(), 4);
    QCOMPARE(preview->item(1, 2)->text(), note);

    std::vector<std::string> statuses;
    QObject::connect(m_session.get(), &ServerSession::statusChanged, this, [this, &statuses] {
        statuses.push_back(m_session->status());
    });
    button(form, QStringLiteral("apply"))->click();
    QVERIFY(settle(*m_session));
    QVERIFY2(form.errorText().isEmpty(), qPrintable(form.errorText()));
    QCOMPARE(form.result(), int(QDialog::Accepted));

    QCOMPARE(rows("SELECT id, name, note FROM people ORDER BY id"), expected);
    QCOMPARE(m_session->tableResult().rows.size(), std::size_t(4));
    const auto shown = [&statuses](const std::string &status) {
        return std::find(statuses.begin(), statuses.end(), status) != statuses.end();
    };
    QVERIFY(shown("Importing CSV…"));
    QVERIFY(shown("Importing CSV… 4 of 4 rows"));
    QVERIFY(shown("Imported 4 rows into people"));
}

void TestCsvImportForm::failingRowLeavesTheTableUnchanged()
{
    m_scratch->run("INSERT INTO people (id, name) VALUES (0, 'kept')");
    // Enough rows for more than one INSERT, so the first has gone through when the last fails
    // on a duplicate key: only the transaction can take it back.
    constexpr int total = 40000;
    QByteArray csv("id,name\n");
    const QByteArray name(40, 'x');
    for (int id = 1; id < total; ++id) {
        csv += QByteArray::number(id) + ',' + name + '\n';
    }
    csv += "1,duplicate\n";
    QVERIFY(static_cast<std::size_t>(csv.size()) > csvDefaultStatementBytes);

    CsvImportForm form(*m_session, m_harness->prompts);
    QVERIFY2(form.loadFile(writeFile(csv)), qPrintable(form.errorText()));
    std::vector<std::string> statuses;
    QObject::connect(m_session.get(), &ServerSession::statusChanged, this, [this, &statuses] {
        statuses.push_back(m_session->status());
    });
    form.apply();
    QVERIFY(settle(*m_session));

    QVERIFY(std::any_of(statuses.begin(), statuses.end(), [](const std::string &status) {
        return status.starts_with("Importing CSV… ")
            && status != "Importing CSV… " + std::to_string(total) + " of " + std::to_string(total) + " rows";
    }));
    QVERIFY2(form.errorText().contains(QStringLiteral("Duplicate entry")), qPrintable(form.errorText()));
    QVERIFY(form.result() != QDialog::Accepted);
    QVERIFY(button(form, QStringLiteral("apply"))->isEnabled());
    QCOMPARE(rows("SELECT id, name FROM people"), QStringList { QStringLiteral("0|kept") });
}

void TestCsvImportForm::refusals_data()
{
    QTest::addColumn<QByteArray>("csv");
    QTest::addColumn<QString>("expected");

    // Every reason is checked on the plan; here, that the form shows it and sends nothing. The
    // generated column needs the live table, and the form reads only so far into a large file.
    QTest::newRow("header without rows") << QByteArray("id,name\n") << "The CSV is empty.";
    QTest::newRow("generated column") << QByteArray("id,doubled\n1,2\n")
                                      << "Unknown or generated column in CSV header: doubled";
    QByteArray tooLarge("id,note\n1,");
    tooLarge += QByteArray(10'000'001 - tooLarge.size() - 1, 'n') + '\n';
    QTest::newRow("one byte over 10,000,000") << tooLarge << "Use SQL import for files larger than 10 MB.";
}

void TestCsvImportForm::refusals()
{
    QFETCH(QByteArray, csv);
    QFETCH(QString, expected);

    CsvImportForm form(*m_session, m_harness->prompts);
    QVERIFY(!form.loadFile(writeFile(csv)));
    QCOMPARE(form.errorText(), expected);
    QCOMPARE(form.findChild<QTableWidget *>(QStringLiteral("preview"))->rowCount(), 0);
    QVERIFY(!button(form, QStringLiteral("apply"))->isEnabled());

    // The NULL toggle does not bring a refused file back.
    form.findChild<QCheckBox *>(QStringLiteral("nullMarker"))->toggle();
    QCOMPARE(form.errorText(), expected);

    QSignalSpy statuses(m_session.get(), &ServerSession::statusChanged);
    form.apply();
    QVERIFY(!m_session->busy());
    QCOMPARE(statuses.count(), 0);
    QCOMPARE(rows("SELECT COUNT(*) FROM people"), QStringList { QStringLiteral("0") });
}

void TestCsvImportForm::readOnlyProfileRefuses()
{
    ConnectionProfile profile = m_harness->profile("Read-only");
    profile.readOnly = true;
    QVERIFY(connectTo(profile));

    CsvImportForm form(*m_session, m_harness->prompts);
    QCOMPARE(form.errorText(), QStringLiteral("This connection is read-only."));
    QVERIFY(!button(form, QStringLiteral("choose"))->isEnabled());
    QVERIFY(!button(form, QStringLiteral("apply"))->isEnabled());

    QVERIFY(!form.loadFile(writeFile("id,name\n1,a\n")));
    QCOMPARE(form.errorText(), QStringLiteral("This connection is read-only."));
    form.apply();
    QVERIFY(!m_session->busy());
    QCOMPARE(rows("SELECT COUNT(*) FROM people"), QStringList { QStringLiteral("0") });
}

void TestCsvImportForm::cancelledFileChoiceChangesNothing()
{
    CsvImportForm form(*m_session, m_harness->prompts);
    QVERIFY(form.loadFile(writeFile("id,name\n7,seven\n")));
    m_harness->prompts.files = { std::nullopt };
    button(form, QStringLiteral("choose"))->click();
    QCOMPARE(m_harness->prompts.asked.size(), std::size_t(1));
    QCOMPARE(form.rowCount(), std::size_t(1));

    form.apply();
    QVERIFY(settle(*m_session));
    QCOMPARE(form.result(), int(QDialog::Accepted));
    QCOMPARE(rows("SELECT id, name FROM people"), QStringList { QStringLiteral("7|seven") });
}

QTEST_MAIN(TestCsvImportForm)
#include "TestCsvImportForm.moc"
