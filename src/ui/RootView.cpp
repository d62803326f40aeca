#include "ui/RootView.h"

#include "session/ServerSession.h"
#include "store/AppStore.h"
#include "ui/ConnectionSheet.h"
#include "ui/SessionView.h"
#include "ui/Sidebar.h"
#include "ui/WelcomeView.h"

#include <QHBoxLayout>
#include <QMessageBox>
#include <QSplitter>
#include <QStackedWidget>

namespace tallowick
{

RootView::RootView(AppStore &store, QWidget *parent)
    : QWidget(parent)
    , m_store(&store)
    , m_sidebar(new Sidebar(store))
    , m_detail(new QStackedWidget)
    , m_welcome(new WelcomeView)
{
    m_detail->addWidget(m_welcome);
    auto *split = new QSplitter(Qt::Horizontal);
    split->addWidget(m_sidebar);
    split->addWidget(m_detail);
    split->setStretchFactor(0, 0);
    split->setStretchFactor(1, 1);
    split->setSizes({ 290, 1000 });
    split->setChildrenCollapsible(false);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(split);

    QObject::connect(m_welcome, &WelcomeView::newConnectionRequested, this, [this] {
        m_store->openConnectionSheet(ConnectionProfile {});
    });
    QObject::connect(&store, &AppStore::selectedChanged, this, &RootView::refreshDetail);
    QObject::connect(&store, &AppStore::sessionsChanged, this, [this] {
        dropClosedSessions();
        refreshDetail();
    });
    QObject::connect(&store, &AppStore::showConnectionChanged, this, &RootView::refreshSheet);
    QObject::connect(&store, &AppStore::errorChanged, this, &RootView::showStoreError);
    refreshDetail();
    // A load error from start-up is shown once the window is up.
    QMetaObject::invokeMethod(this, &RootView::showStoreError, Qt::QueuedConnection);
}

ConnectionSheet *RootView::sheet() const
{
    return m_sheet;
}

QWidget *RootView::detail() const
{
    return m_detail->currentWidget();
}

SessionView *RootView::sessionView(const QUuid &id) const
{
    const auto found = m_sessionViews.find(id);
    return found == m_sessionViews.end() ? nullptr : found->second;
}

void RootView::refreshDetail()
{
    ServerSession *active = m_store ? m_store->active() : nullptr;
    if (!active) {
        m_detail->setCurrentWidget(m_welcome);
        return;
    }
    SessionView *view = sessionView(active->id());
    if (!view) {
        view = new SessionView(*m_store, *active);
        m_sessionViews.emplace(active->id(), view);
        m_detail->addWidget(view);
    }
    m_detail->setCurrentWidget(view);
}

void RootView::dropClosedSessions()
{
    for (auto view = m_sessionViews.begin(); view != m_sessionViews.end();) {
        if (m_store->sessions().count(view->first) == 0) {
            m_detail->removeWidget(view->second);
            view->second->deleteLater();
            view = m_sessionViews.erase(view);
        } else {
            ++view;
        }
    }
}

void RootView::refreshSheet()
{
    if (!m_store || !m_store->showConnection() || m_sheet) {
        return;
    }
    const ConnectionProfile profile = m_store->editingProfile().value_or(ConnectionProfile {});
    m_sheet = new ConnectionSheet(*m_store, profile, m_store->editingTunnel(), window());
    m_sheet->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(m_sheet, &QDialog::finished, this, [this] {
        if (m_store) {
            m_store->closeConnectionSheet();
        }
    });
    m_sheet->open();
}

void RootView::showStoreError()
{
    if (!m_store || !m_store->error() || m_errorShown) {
        return;
    }
    m_errorShown = true;
    auto *alert = new QMessageBox(QMessageBox::Warning,
        QStringLiteral("Tallowick"),
        QString::fromStdString(*m_store->error()),
        QMessageBox::Ok,
        window());
    alert->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(alert, &QMessageBox::finished, this, [this, shown = *m_store->error()] {
        m_errorShown = false;
        if (!m_store) {
            return;
        }
        // An error that came while this one was open is shown next, not cleared unseen.
        if (m_store->error() == shown) {
            m_store->setError(std::nullopt);
        } else {
            showStoreError();
        }
    });
    alert->open();
}

} // namespace tallowick
