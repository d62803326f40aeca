#include "ui/MainWindow.h"

#include "session/ServerSession.h"
#include "store/AppStore.h"
#include "ui/QuitPrompts.h"
#include "ui/RootView.h"
#include "ui/SQLEditor.h"
#include "ui/ThemeController.h"
#include "ui/WindowGeometry.h"
#include "version/Version.h"

#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QKeyEvent>
#include <QMenuBar>
#include <QMessageBox>
#include <QStandardPaths>
#include <QUrl>

static void registerGuideResource()
{
    Q_INIT_RESOURCE(guide);
}

namespace tallowick
{

namespace
{

// Gives the focused widget the first key of `sequence`, as if typed there.
void sendKeyToFocus(const QKeySequence &sequence)
{
    QWidget *focus = QApplication::focusWidget();
    if (!focus || sequence.isEmpty()) {
        return;
    }
    QKeyEvent press(QEvent::KeyPress, sequence[0].key(), sequence[0].keyboardModifiers());
    QCoreApplication::sendEvent(focus, &press);
}

// Sends a standard edit command (undo, cut, copy, paste, selectAll) to the focused widget.
// Views without such a slot (the result grid) get the command's key instead, which they handle.
void sendToFocus(const char *slot, QKeySequence::StandardKey key)
{
    QWidget *focus = QApplication::focusWidget();
    if (!focus) {
        return;
    }
    const QByteArray signature = QByteArray(slot) + "()";
    if (focus->metaObject()->indexOfMethod(signature.constData()) >= 0) {
        QMetaObject::invokeMethod(focus, slot);
        return;
    }
    sendKeyToFocus(QKeySequence(key));
}

} // namespace

QString guidePath()
{
    const QStringList candidates {
        QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("Guide.md")),
        QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("../share/doc/tallowick/Guide.md")),
    };
    for (const QString &candidate : candidates) {
        if (QFile::exists(candidate)) {
            return QDir::cleanPath(candidate);
        }
    }
    // Not installed beside the program: take the copy kept in the resources.
    registerGuideResource();
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
    if (folder.isEmpty() || !QDir().mkpath(folder)) {
        return {};
    }
    const QString extracted = QDir(folder).filePath(QStringLiteral("Guide.md"));
    QFile::remove(extracted);
    if (!QFile::copy(QStringLiteral(":/guide/Guide.md"), extracted)) {
        return {};
    }
    QFile::setPermissions(extracted, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    return extracted;
}

MainWindow::MainWindow(AppStore &store, UserPrompts &prompts, QWidget *parent)
    : QMainWindow(parent)
    , m_store(&store)
    , m_prompts(prompts)
    , m_root(new RootView(store))
    , m_theme(new ThemeController(QString::fromStdString(store.folder()), this))
{
    setWindowTitle(QStringLiteral("Tallowick"));
    setMinimumSize(minimumWindowSize);
    setCentralWidget(m_root);
    buildMenus();
}

void MainWindow::buildMenus()
{
    // Quit, full screen and help are spelled out: some desktops define no standard key for
    // them, and the shortcuts should be the same everywhere.
    QMenuBar *bar = menuBar();
    QMenu *app = bar->addMenu(QStringLiteral("Tallowick"));
    app->addAction(QStringLiteral("About Tallowick"), this, &MainWindow::showAbout);
    app->addSeparator();
    app->addAction(QStringLiteral("Hide Tallowick"), QKeySequence(Qt::CTRL | Qt::Key_H), this, &QWidget::showMinimized);
    app->addSeparator();
    app->addAction(QStringLiteral("Quit Tallowick"), QKeySequence(Qt::CTRL | Qt::Key_Q), this, &QWidget::close);

    QMenu *file = bar->addMenu(QStringLiteral("File"));
    file->addAction(QStringLiteral("New Connection…"), QKeySequence::New, this, &MainWindow::newConnection);
    file->addAction(QStringLiteral("New Query Tab"), QKeySequence(Qt::CTRL | Qt::Key_T), this, &MainWindow::newQuery);
    file->addAction(QStringLiteral("Open SQL Script…"), QKeySequence::Open, this, &MainWindow::openSQL);
    file->addAction(QStringLiteral("Export Database and Verify…"), this, [this] {
        if (ServerSession *session = m_store->active()) {
            session->backup(true);
        }
    });
    file->addAction(QStringLiteral("Export All Rows to CSV…"), this, [this] {
        if (ServerSession *session = m_store->active()) {
            session->exportAllRowsCSV();
        }
    });
    file->addAction(QStringLiteral("Run SQL File…"), this, [this] {
        if (ServerSession *session = m_store->active()) {
            session->runSqlFile();
        }
    });
    file->addAction(QStringLiteral("Save Query…"), QKeySequence::Save, this, &MainWindow::saveSQL);

    QMenu *edit = bar->addMenu(QStringLiteral("Edit"));
    const struct {
        const char *title;
        QKeySequence::StandardKey key;
        const char *slot;
    } editCommands[] = {
        { "Undo", QKeySequence::Undo, "undo" },
        { "Cut", QKeySequence::Cut, "cut" },
        { "Copy", QKeySequence::Copy, "copy" },
        { "Paste", QKeySequence::Paste, "paste" },
        { "Select All", QKeySequence::SelectAll, "selectAll" },
    };
    for (const auto &command : editCommands) {
        edit->addAction(QString::fromLatin1(command.title), command.key, this, [command] {
            sendToFocus(command.slot, command.key);
        });
    }
    // Find and replace belong to the find bar of the focused editor, which answers these keys.
    edit->addSeparator();
    const std::pair<QString, QKeySequence> findCommands[] = {
        { QStringLiteral("Find…"), QKeySequence(Qt::CTRL | Qt::Key_F) },
        { QStringLiteral("Replace…"), QKeySequence(Qt::CTRL | Qt::Key_H) },
        { QStringLiteral("Find Next"), QKeySequence(Qt::Key_F3) },
        { QStringLiteral("Find Previous"), QKeySequence(Qt::SHIFT | Qt::Key_F3) },
    };
    for (const auto &command : findCommands) {
        const QKeySequence keys = command.second;
        edit->addAction(command.first, keys, this, [keys] { sendKeyToFocus(keys); });
    }

    QMenu *query = bar->addMenu(QStringLiteral("Query"));
    query->addAction(QStringLiteral("Run Query"), QKeySequence(Qt::CTRL | Qt::Key_Return), this, &MainWindow::runQuery);
    query->addAction(QStringLiteral("Run Statement at Cursor"),
        QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Return),
        this,
        &MainWindow::runStatementAtCursor);
    query->addAction(
        QStringLiteral("Query Builder"), QKeySequence(Qt::CTRL | Qt::Key_B), this, &MainWindow::showBuilder);

    QMenu *view = bar->addMenu(QStringLiteral("View"));
    view->addAction(
        QStringLiteral("Toggle Full Screen"), QKeySequence(Qt::Key_F11), this, &MainWindow::toggleFullScreen);
    QMenu *theme = view->addMenu(QStringLiteral("Theme"));
    auto *themes = new QActionGroup(theme);
    for (const auto &[title, choice] : { std::pair { QStringLiteral("System"), ThemeChoice::system },
             std::pair { QStringLiteral("Light"), ThemeChoice::light },
             std::pair { QStringLiteral("Dark"), ThemeChoice::dark } }) {
        QAction *item = theme->addAction(title, m_theme, [this, choice] { m_theme->setChoice(choice); });
        item->setCheckable(true);
        item->setChecked(m_theme->choice() == choice);
        themes->addAction(item);
        QObject::connect(m_theme, &ThemeController::choiceChanged, item, [item, choice](ThemeChoice chosen) {
            item->setChecked(chosen == choice);
        });
    }

    QMenu *help = bar->addMenu(QStringLiteral("Help"));
    help->addAction(QStringLiteral("Tallowick Guide"), QKeySequence(Qt::Key_F1), this, &MainWindow::showGuide);

    // Edit commands act on whatever widget has focus, so their shortcuts belong to that widget:
    // the menu entries only document them and serve clicks.
    for (QAction *action : edit->actions()) {
        action->setShortcutContext(Qt::WidgetShortcut);
    }
}

QAction *MainWindow::action(const QString &title) const
{
    for (QAction *menu : menuBar()->actions()) {
        for (QAction *item : menu->menu()->actions()) {
            if (item->text() == title) {
                return item;
            }
            // One level of submenus, such as View › Theme.
            for (QAction *subitem : item->menu() ? item->menu()->actions() : QList<QAction *>()) {
                if (subitem->text() == title) {
                    return subitem;
                }
            }
        }
    }
    return nullptr;
}

void MainWindow::flushEditor()
{
    // A large script's latest edits may still be held back in an editor: typed there, or
    // replaced from its find bar while the focus was elsewhere.
    for (SQLEditor *editor : findChildren<SQLEditor *>()) {
        editor->flushEdits();
    }
}

void MainWindow::newConnection()
{
    m_store->openConnectionSheet(ConnectionProfile {});
}

void MainWindow::newQuery()
{
    if (ServerSession *session = m_store->active()) {
        session->newTab("");
        session->setMode(WorkspaceMode::query);
    }
}

void MainWindow::openSQL()
{
    if (ServerSession *session = m_store->active()) {
        session->importSQL();
        session->setMode(WorkspaceMode::query);
    }
}

void MainWindow::saveSQL()
{
    flushEditor();
    if (ServerSession *session = m_store->active()) {
        session->saveQuery();
    }
}

void MainWindow::runQuery()
{
    flushEditor();
    if (ServerSession *session = m_store->active()) {
        session->run();
    }
}

void MainWindow::runStatementAtCursor()
{
    // The editor being typed in, or else the query editor on show (focus may be in the results).
    auto *editor = qobject_cast<SQLEditor *>(QApplication::focusWidget());
    for (SQLEditor *candidate : findChildren<SQLEditor *>()) {
        if (!editor && candidate->isVisible() && !candidate->isReadOnly()) {
            editor = candidate;
        }
    }
    if (editor) {
        editor->runStatementAtCursor();
    }
}

void MainWindow::showBuilder()
{
    if (ServerSession *session = m_store->active()) {
        session->setMode(WorkspaceMode::builder);
    }
}

void MainWindow::toggleFullScreen()
{
    setWindowState(windowState() ^ Qt::WindowFullScreen);
}

void MainWindow::showAbout()
{
    QMessageBox box(this);
    box.setWindowTitle(QStringLiteral("About Tallowick"));
    box.setIconPixmap(windowIcon().pixmap(96, 96));
    box.setText(QStringLiteral("<b>Tallowick</b><br>Version ") + QString::fromUtf8(versionText).toHtmlEscaped());
    box.setInformativeText(QStringLiteral("A native MySQL and MariaDB workspace for Linux.<br>"
                                          "Qt 6 Widgets · MariaDB Connector/C<br>"
                                          "OpenSSL TLS · Secret Service keyring<br><br>"
                                          "A personal build, not affiliated with other vendors."));
    box.exec();
}

void MainWindow::showGuide()
{
    const QString path = guidePath();
    if (!path.isEmpty()) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(path));
    }
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    // Typing still held back in any editor makes its tab unsaved: it must count before asking.
    for (SQLEditor *editor : findChildren<SQLEditor *>()) {
        editor->flushEdits();
    }
    if (m_store && !confirmQuit(*m_store, m_prompts)) {
        event->ignore();
        return;
    }
    event->accept();
}

} // namespace tallowick
