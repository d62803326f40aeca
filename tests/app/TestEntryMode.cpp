#include "app/CheckRunner.h"
#include "app/EntryMode.h"
#include "core/AppError.h"

#include <QTest>
#include <sstream>

using namespace tallowick;

Q_DECLARE_METATYPE(tallowick::EntryMode)

class TestEntryMode final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void choosesMode_data();
    void choosesMode();
    void parsesPorts_data();
    void parsesPorts();
    void failingCheckEndsTheRun();
};

void TestEntryMode::choosesMode_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<EntryMode>("expected");

    const EntryMode desktop = DesktopMode {};
    QTest::newRow("no arguments") << QStringList { "tallowick" } << desktop;
    QTest::newRow("self-test wins over integration")
        << QStringList { "tallowick", "--integration-test", "3306", "--self-test" } << EntryMode(SelfTestMode {});
    QTest::newRow("self-test matched as the program path")
        << QStringList { "--self-test" } << EntryMode(SelfTestMode {});
    QTest::newRow("integration without CA") << QStringList { "tallowick", "--integration-test", "3306" }
                                            << EntryMode(IntegrationTestMode { 3306, std::nullopt, std::nullopt });
    QTest::newRow("integration with CA") << QStringList {
        "tallowick", "--ca", "/tmp/ca.pem", "--integration-test", "3307"
    } << EntryMode(IntegrationTestMode { 3307, "/tmp/ca.pem", std::nullopt });
    QTest::newRow("integration with plus sign") << QStringList { "tallowick", "--integration-test", "+3306" }
                                                << EntryMode(IntegrationTestMode { 3306, std::nullopt, std::nullopt });
    QTest::newRow("port outside TCP range still reaches the checks")
        << QStringList { "tallowick", "--integration-test", "-1" }
        << EntryMode(IntegrationTestMode { -1, std::nullopt, std::nullopt });
    QTest::newRow("--ca last runs without a CA") << QStringList { "tallowick", "--integration-test", "3306", "--ca" }
                                                 << EntryMode(IntegrationTestMode { 3306, std::nullopt, std::nullopt });
    QTest::newRow("integration through SSH")
        << QStringList { "tallowick",
               "--integration-test",
               "3306",
               "--ssh",
               "deploy@bastion:2222",
               "--ssh-key",
               "k",
               "--known-hosts",
               "kh" }
        << EntryMode(
               IntegrationTestMode { 3306, std::nullopt, IntegrationTunnel { "deploy", "bastion", 2222, "k", "kh" } });
    QTest::newRow("--ssh without a key falls through") << QStringList {
        "tallowick", "--integration-test", "3306", "--ssh", "deploy@bastion:22", "--known-hosts", "kh"
    } << desktop;
    QTest::newRow("--ssh without a user falls through") << QStringList {
        "tallowick", "--integration-test", "3306", "--ssh", "bastion:22", "--ssh-key", "k", "--known-hosts", "kh"
    } << desktop;
    QTest::newRow("first --integration-test is used")
        << QStringList { "tallowick", "--integration-test", "word", "--integration-test", "3306" } << desktop;
    QTest::newRow("integration last falls through") << QStringList { "tallowick", "--integration-test" } << desktop;
    QTest::newRow("integration with a word falls through")
        << QStringList { "tallowick", "--integration-test", "mysql" } << desktop;
    QTest::newRow("integration with blank port falls through")
        << QStringList { "tallowick", "--integration-test", " 3306" } << desktop;
    QTest::newRow("integration failure falls to make-icon")
        << QStringList { "tallowick", "--integration-test", "x", "--make-icon", "/tmp/icon.png" }
        << EntryMode(MakeIconMode { "/tmp/icon.png" });
    QTest::newRow("make-icon") << QStringList { "tallowick", "--make-icon", "out.png" }
                               << EntryMode(MakeIconMode { "out.png" });
    QTest::newRow("make-icon last falls through") << QStringList { "tallowick", "--make-icon" } << desktop;
    QTest::newRow("make-icon with a size") << QStringList { "tallowick", "--size", "48", "--make-icon", "out.png" }
                                           << EntryMode(MakeIconMode { "out.png", 48 });
    QTest::newRow("make-icon with a word for a size is refused later")
        << QStringList { "tallowick", "--make-icon", "out.png", "--size", "big" }
        << EntryMode(MakeIconMode { "out.png", 0 });
    QTest::newRow("make-icon with --size last is refused later")
        << QStringList { "tallowick", "--make-icon", "out.png", "--size" } << EntryMode(MakeIconMode { "out.png", 0 });
    QTest::newRow("version") << QStringList { "tallowick", "--version" } << EntryMode(VersionMode {});
    QTest::newRow("make-icon wins over version")
        << QStringList { "tallowick", "--version", "--make-icon", "out.png" } << EntryMode(MakeIconMode { "out.png" });
    QTest::newRow("self-test wins over version")
        << QStringList { "tallowick", "--version", "--self-test" } << EntryMode(SelfTestMode {});
    QTest::newRow("broken make-icon falls to version")
        << QStringList { "tallowick", "--version", "--make-icon" } << EntryMode(VersionMode {});
    QTest::newRow("matching is case-sensitive") << QStringList { "tallowick", "--Self-Test" } << desktop;
    QTest::newRow("matching is whole-argument") << QStringList { "tallowick", "--self-test=1" } << desktop;
    QTest::newRow("version matching is whole-argument") << QStringList { "tallowick", "--version=1" } << desktop;
}

void TestEntryMode::choosesMode()
{
    QFETCH(QStringList, arguments);
    QFETCH(EntryMode, expected);
    std::vector<std::string> list;
    for (const QString &argument : arguments) {
        list.push_back(argument.toStdString());
    }
    QVERIFY(chooseEntryMode(list) == expected);
}

void TestEntryMode::parsesPorts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<qint64>("value");

    QTest::newRow("int64 max") << "9223372036854775807" << true << std::numeric_limits<qint64>::max();
    QTest::newRow("int64 min") << "-9223372036854775808" << true << std::numeric_limits<qint64>::min();
    QTest::newRow("overflow") << "9223372036854775808" << false << qint64(0);
    QTest::newRow("empty") << "" << false << qint64(0);
    QTest::newRow("sign only") << "+" << false << qint64(0);
    QTest::newRow("double sign") << "+-1" << false << qint64(0);
    QTest::newRow("trailing blank") << "3306 " << false << qint64(0);
    QTest::newRow("hex") << "0x10" << false << qint64(0);
}

void TestEntryMode::parsesPorts()
{
    QFETCH(QString, text);
    QFETCH(bool, valid);
    QFETCH(qint64, value);
    const std::optional<std::int64_t> port = parsePortArgument(text.toStdString());
    QCOMPARE(port.has_value(), valid);
    if (valid) {
        QCOMPARE(*port, value);
    }
}

// A check that returns false or throws ends the run with its name and exit status 1; the checks
// after it never run. (Success, status 0 with nothing on standard error, is the self-test output.)
void TestEntryMode::failingCheckEndsTheRun()
{
    for (const bool throws : { false, true }) {
        int laterRuns = 0;
        const std::vector<NamedCheck> checks {
            { "first", [] { return true; } },
            { "broken", [throws]() -> bool { return throws ? throw std::runtime_error("boom") : false; } },
            { "after", [&laterRuns] { return ++laterRuns > 0; } },
        };
        std::ostringstream out;
        std::ostringstream errors;
        QCOMPARE(runNonInteractive([&] { runChecks(checks, out); }, errors), 1);
        QCOMPARE(out.str(), std::string("PASS: first\n"));
        QCOMPARE(errors.str(), std::string("FAIL: broken\n"));
        QCOMPARE(laterRuns, 0);
    }
}

QTEST_GUILESS_MAIN(TestEntryMode)
#include "TestEntryMode.moc"
