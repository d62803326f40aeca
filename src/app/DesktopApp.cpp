#include "app/DesktopApp.h"

#include "credentials/Keychain.h"
#include "credentials/QtKeychainStore.h"
#include "store/AppStore.h"
#include "ui/AppIcon.h"
#include "ui/DialogPrompts.h"
#include "ui/MainWindow.h"
#include "ui/Theme.h"
#include "ui/ThemeController.h"
#include "ui/WindowGeometry.h"
#include "version/Version.h"

#include <QApplication>
#include <QIcon>
#include <QPixmap>
#include <QScopeGuard>
#include <QScreen>
#include <QThread>
#include <QThreadPool>
#include <algorithm>

namespace tallowick
{

int runDesktop(int &argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tallowick"));
    QApplication::setApplicationVersion(QString::fromUtf8(versionText));
    // Names the installed desktop entry, whose icon a Wayland compositor shows for the window.
    QApplication::setDesktopFileName(QStringLiteral("local.tallowick.Tallowick"));
    QApplication::setWindowIcon(QIcon(QPixmap::fromImage(drawAppIcon())));
    applyWorkspaceStyle(app);
    // The shared pool carries cancels, connection tests and keyring lookups, and a lookup may
    // wait on an unlock prompt; on a two-core machine two such waits must not hold back a cancel.
    QThreadPool::globalInstance()->setMaxThreadCount(std::max(8, QThread::idealThreadCount()));

    const auto secretStore = std::make_shared<QtKeychainStore>();
    const auto keychain = std::make_shared<Keychain>(secretStore, std::make_shared<CredentialMemoryCache>());
    DialogPrompts prompts;
    AppStore store(std::nullopt, keychain, prompts);
    MainWindow window(store, prompts);
    prompts.setWindow(&window);
    window.themeController()->followDesktop();
    // Background jobs own what they use, so none can outlive it; they are still let finish
    // before the window and the store go, which keeps their answers from reaching a half-torn
    // program. A keyring prompt still open is given up rather than waited out.
    const auto drainBackgroundWork = qScopeGuard([&secretStore] {
        secretStore->abandonWaits();
        QThreadPool::globalInstance()->waitForDone();
    });

    const QScreen *screen = QGuiApplication::primaryScreen();
    const std::optional<QRect> available = screen ? std::optional<QRect>(screen->availableGeometry()) : std::nullopt;
    window.resize(initialWindowSize(available));
    if (available) {
        window.move(available->center() - window.rect().center());
    }
    window.show();
    window.raise();
    window.activateWindow();
    return QApplication::exec();
}

} // namespace tallowick
