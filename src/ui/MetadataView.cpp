#include "ui/MetadataView.h"

#include "session/ServerSession.h"
#include "ui/NativeGrid.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace tallowick
{

MetadataView::MetadataView(ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_title(new QLabel)
    , m_showCreate(new QPushButton(QStringLiteral("Show CREATE")))
    , m_grid(new NativeGrid)
{
    m_showCreate->setToolTip(QStringLiteral("Open the table's CREATE statement in a new query tab"));
    QFont titleFont = m_title->font();
    titleFont.setWeight(QFont::DemiBold);
    m_title->setFont(titleFont);
    auto *bar = new QHBoxLayout;
    bar->addWidget(m_title, 1);
    bar->addWidget(m_showCreate);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 8, 14, 8);
    layout->addLayout(bar);
    layout->addWidget(m_grid, 1);

    QObject::connect(m_showCreate, &QPushButton::clicked, this, [this] { m_session->showCreate(); });
    QObject::connect(&session, &ServerSession::metadataChanged, this, &MetadataView::refresh);
    QObject::connect(&session, &ServerSession::modeChanged, this, &MetadataView::refresh);
    QObject::connect(&session, &ServerSession::busyChanged, this, &MetadataView::refresh);
    QObject::connect(&session, &ServerSession::selectedTableChanged, this, &MetadataView::refresh);
    refresh();
}

void MetadataView::refresh()
{
    if (!m_session) {
        return;
    }
    const QString table = QString::fromStdString(m_session->selectedTable());
    m_title->setText(table.isEmpty()
            ? QStringLiteral("Choose a table in the sidebar")
            : QString::fromStdString(std::string(title(m_session->mode()))) + QStringLiteral(" of ") + table);
    m_showCreate->setEnabled(!table.isEmpty() && !m_session->busy());
    m_grid->refresh(m_session->metadata(), false, -1);
}

} // namespace tallowick
