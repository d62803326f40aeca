// Walks the real main window through its main screens against a running server and saves a
// screenshot of each, for the documentation. Run under a display (xvfb-run) by
// scripts/screenshots, which prepares the demo server and database first.
//
//   tallowick_screenshot_tour OUTPUT_FOLDER   (server from TALLOWICK_TEST_PORT/_USER/_PASSWORD/_CA)
#include "core/SqlQuoting.h"
#include "credentials/Keychain.h"
#include "session/ServerSession.h"
#include "store/AppStore.h"
#include "ui/AppIcon.h"
#include "ui/ConnectionSheet.h"
#include "ui/DialogPrompts.h"
#include "ui/MainWindow.h"
#include "ui/ManagementForm.h"
#include "ui/RootView.h"
#include "ui/SessionView.h"
#include "ui/Theme.h"
#include "ui/ThemeController.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>
#include <iostream>
#include <mysql.h>

using namespace tallowick;

namespace
{

// The demo's password, handed out by an in-memory keyring so the tour needs no Secret Service.
class FixedPassword final : public SecretStore
{
public:
    SecretOutcome read(const std::string &) override
    {
        return SecretOutcome::found(qEnvironmentVariable("TALLOWICK_TEST_PASSWORD").toStdString());
    }
    SecretOutcome write(const std::string &, const std::string &) override { return SecretOutcome::found({}); }
    SecretOutcome remove(const std::string &) override { return SecretOutcome::found({}); }
};

void pause(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

// Lets the event loop run until the session is idle (also across chained jobs).
void settle(ServerSession &session)
{
    QElapsedTimer clock;
    clock.start();
    do {
        pause(50);
    } while ((session.busy() || clock.elapsed() < 200) && clock.elapsed() < 20000);
    pause(150);
}

void save(QWidget &widget, const QString &folder, const char *name)
{
    const QString path = QDir(folder).filePath(QString::fromLatin1(name));
    if (!widget.grab().save(path)) {
        std::cerr << "could not write " << path.toStdString() << '\n';
    } else {
        std::cout << "wrote " << path.toStdString() << '\n';
    }
}

} // namespace

int main(int argc, char *argv[])
{
    mysql_server_init(0, nullptr, nullptr);
    QApplication app(argc, argv);
    if (argc != 2) {
        std::cerr << "usage: tallowick_screenshot_tour OUTPUT_FOLDER\n";
        return 2;
    }
    const QString output = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(output);
    QApplication::setWindowIcon(QIcon(QPixmap::fromImage(drawAppIcon())));
    applyWorkspaceStyle(app);

    const auto keychain
        = std::make_shared<Keychain>(std::make_shared<FixedPassword>(), std::make_shared<CredentialMemoryCache>());
    DialogPrompts prompts;
    QTemporaryDir folder;
    AppStore store(folder.path().toStdString(), keychain, prompts);

    ConnectionProfile demo;
    demo.name = "Local demo";
    demo.host = "127.0.0.1";
    demo.port = qEnvironmentVariable("TALLOWICK_TEST_PORT").toLongLong();
    demo.user = qEnvironmentVariable("TALLOWICK_TEST_USER").toStdString();
    demo.database = "shop";
    demo.caPath = qEnvironmentVariable("TALLOWICK_TEST_CA").toStdString();
    demo.tls = TLSMode::verify;
    demo.color = "teal";
    ConnectionProfile staging = demo;
    staging.id = QUuid::createUuid();
    staging.name = "Staging (read-only)";
    staging.host = "10.0.4.12";
    staging.readOnly = true;
    staging.color = "orange";
    staging.tls = TLSMode::require;
    const SshTunnelSettings bastion { "bastion.example.com",
        22,
        "deploy",
        SshAuth::keyFile,
        QDir::home().filePath(QStringLiteral(".ssh/id_ed25519")).toStdString() };
    bool saved = false;
    store.save(staging, "", bastion, "", [&saved](const auto &) { saved = true; });
    while (!saved) {
        pause(20);
    }
    saved = false;
    store.save(
        demo, qEnvironmentVariable("TALLOWICK_TEST_PASSWORD").toStdString(), [&saved](const auto &) { saved = true; });
    while (!saved) {
        pause(20);
    }

    MainWindow window(store, prompts);
    prompts.setWindow(&window);
    window.resize(1440, 900);
    window.show();
    pause(600);
    store.setSelected(std::nullopt);
    pause(300);
    save(window, output, "welcome.png");

    store.openConnectionSheet(demo);
    pause(800);
    if (ConnectionSheet *sheet = window.rootView()->sheet()) {
        save(*sheet, output, "connection-sheet.png");
        sheet->reject();
        delete sheet; // its deferred deletion would wait for the outer event loop
    }
    pause(300);
    store.openConnectionSheet(staging);
    pause(800);
    if (ConnectionSheet *sheet = window.rootView()->sheet()) {
        save(*sheet, output, "connection-sheet-ssh.png");
        sheet->reject();
        delete sheet;
    }
    pause(300);

    store.connect(demo);
    ServerSession *session = store.active();
    settle(*session);
    session->chooseDatabase("shop");
    settle(*session);
    session->selectTable("orders", "shop");
    settle(*session);
    save(window, output, "data-view.png");

    session->newTab("SELECT c.name, c.city, COUNT(o.id) AS orders, SUM(t.total) AS spent\n"
                    "FROM customers c\n"
                    "JOIN orders o ON o.customer_id = c.id\n"
                    "JOIN order_totals t ON t.order_id = o.id\n"
                    "WHERE o.status <> 'cancelled' -- paid or shipped\n"
                    "GROUP BY c.id, c.name, c.city\n"
                    "ORDER BY spent DESC\n"
                    "LIMIT 50;",
        std::string("Top customers"));
    session->run();
    settle(*session);
    save(window, output, "sql-editor.png");

    SessionView *view = window.rootView()->sessionView(session->id());
    view->modeButton(WorkspaceMode::server)->click();
    settle(*session);
    save(window, output, "server-view.png");

    BuilderSpec spec;
    spec.database = "shop";
    spec.table = "orders";
    session->setBuilder(spec);
    session->loadBuilderColumns("orders");
    settle(*session);
    session->loadBuilderColumns("customers");
    settle(*session);
    spec.columns = { { "orders", "id", "" }, { "orders", "status", "" }, { "customers", "name", "" } };
    BuilderJoin join;
    join.table = "customers";
    join.left = "orders.customer_id";
    join.right = "customers.id";
    spec.joins = { join };
    BuilderFilter filter;
    filter.column = "orders.status";
    filter.value = "shipped";
    spec.filters = { filter };
    spec.orderBy = "orders.id";
    spec.descending = true;
    spec.limit = 100;
    session->setBuilder(spec);
    view->modeButton(WorkspaceMode::builder)->click();
    settle(*session);
    save(window, output, "query-builder.png");

    ManagementForm form(*session, prompts, ManagementSheet::createTable, std::nullopt, &window);
    form.show();
    pause(600);
    save(form, output, "create-table.png");
    form.reject();

    // The main views again in the dark theme.
    window.themeController()->setChoice(ThemeChoice::dark);
    pause(300);
    view->modeButton(WorkspaceMode::data)->click();
    settle(*session);
    save(window, output, "dark-data-view.png");
    view->modeButton(WorkspaceMode::query)->click();
    settle(*session);
    save(window, output, "dark-sql-editor.png");
    view->modeButton(WorkspaceMode::builder)->click();
    settle(*session);
    save(window, output, "dark-query-builder.png");
    store.setSelected(std::nullopt);
    pause(300);
    save(window, output, "dark-welcome.png");
    store.openConnectionSheet(demo);
    pause(800);
    if (ConnectionSheet *sheet = window.rootView()->sheet()) {
        save(*sheet, output, "dark-connection-sheet.png");
        sheet->reject();
        delete sheet;
    }
    return 0;
}
