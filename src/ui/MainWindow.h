#pragma once

#include <QMainWindow>
#include <QPointer>

namespace tallowick
{

class AppStore;
class RootView;
class ThemeController;
class UserPrompts;

// The single main window: the root view, the menu bar acting on the active session, the About
// box and the guide, and the quit prompts, which closing the window goes through as well.
class MainWindow final : public QMainWindow
{
    Q_OBJECT

public:
    MainWindow(AppStore &store, UserPrompts &prompts, QWidget *parent = nullptr);

    RootView *rootView() const { return m_root; }
    // View › Theme: the choice kept in the store's folder, and the appearance applied.
    ThemeController *themeController() const { return m_theme; }
    // The menu bar's action with this exact title, for tests and for the shell.
    QAction *action(const QString &title) const;

    void newConnection();
    void newQuery();
    void openSQL();
    void saveSQL();
    void runQuery();
    void runStatementAtCursor();
    void showBuilder();
    void toggleFullScreen();
    void showAbout();
    void showGuide();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void buildMenus();
    void flushEditor();

    QPointer<AppStore> m_store;
    UserPrompts &m_prompts;
    RootView *m_root;
    ThemeController *m_theme;
};

// Where the guide is: next to the program, in the installed share folder, or failing both a
// copy taken out of the resources. Empty when none can be found.
QString guidePath();

} // namespace tallowick
