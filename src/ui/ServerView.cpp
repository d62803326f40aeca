#include "ui/ServerView.h"

#include "session/ServerSession.h"
#include "ui/NativeGrid.h"
#include "ui/ResultFilter.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

namespace tallowick
{

ServerView::ServerView(ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_choices(new QButtonGroup(this))
    , m_filter(new QLineEdit)
    , m_reload(new QPushButton(QStringLiteral("Reload")))
    , m_stop(new QPushButton(QStringLiteral("Stop process…")))
    , m_grid(new NativeGrid)
{
    auto *bar = new QHBoxLayout;
    bar->setSpacing(6);
    const std::pair<Listing, QString> choices[] = {
        { Listing::status, QStringLiteral("Status") },
        { Listing::variables, QStringLiteral("Variables") },
        { Listing::processes, QStringLiteral("Processes") },
    };
    for (const auto &[listing, label] : choices) {
        auto *button = new QPushButton(label);
        button->setCheckable(true);
        button->setChecked(listing == m_listing);
        m_choices->addButton(button, static_cast<int>(listing));
        bar->addWidget(button);
    }
    m_choices->setExclusive(true);
    m_filter->setPlaceholderText(QStringLiteral("Filter"));
    m_filter->setClearButtonEnabled(true);
    m_stop->setToolTip(QStringLiteral("Stop the selected server process"));
    bar->addSpacing(12);
    bar->addWidget(m_filter, 1);
    bar->addWidget(m_reload);
    bar->addWidget(m_stop);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 8, 14, 8);
    layout->addLayout(bar);
    layout->addWidget(m_grid, 1);

    QObject::connect(
        m_choices, &QButtonGroup::idClicked, this, [this](int id) { showListing(static_cast<Listing>(id)); });
    QObject::connect(m_filter, &QLineEdit::textChanged, this, &ServerView::refresh);
    QObject::connect(m_reload, &QPushButton::clicked, this, &ServerView::reload);
    QObject::connect(m_stop, &QPushButton::clicked, this, &ServerView::stopSelectedProcess);
    QObject::connect(m_grid, &NativeGrid::rowSelected, this, [this](std::int64_t row) {
        m_selectedRow = row;
        refresh();
    });
    QObject::connect(&session, &ServerSession::metadataChanged, this, &ServerView::refresh);
    QObject::connect(&session, &ServerSession::busyChanged, this, &ServerView::refresh);
    refresh();
}

void ServerView::showListing(Listing listing)
{
    m_listing = listing;
    if (QAbstractButton *button = m_choices->button(static_cast<int>(listing))) {
        button->setChecked(true);
    }
    m_selectedRow = -1;
    reload();
}

void ServerView::reload()
{
    switch (m_listing) {
    case Listing::status:
        m_session->serverInfo();
        break;
    case Listing::variables:
        m_session->variables();
        break;
    case Listing::processes:
        m_session->processes();
        break;
    }
}

void ServerView::refresh()
{
    if (!m_session) {
        return;
    }
    const QueryResult &listed = shown();
    const bool newListing = m_grid->result().columnNames() != listed.columnNames();
    m_grid->refresh(listed, false, m_selectedRow);
    // Variable names are long; a fresh listing shows its first column in full (within reason).
    if (newListing && !listed.fields.empty()) {
        m_grid->resizeColumnToContents(0);
        m_grid->setColumnWidth(0, std::clamp(m_grid->columnWidth(0) + 16, 140, 420));
    }
    const bool processChosen = m_listing == Listing::processes && m_selectedRow >= 0
        && static_cast<std::size_t>(m_selectedRow) < listed.rows.size();
    m_stop->setVisible(m_listing == Listing::processes);
    m_stop->setEnabled(processChosen && !m_session->busy());
    m_reload->setEnabled(!m_session->busy());
}

const QueryResult &ServerView::shown()
{
    if (m_shownSource != m_session->metadata().id || m_shownFilter != m_filter->text()) {
        m_shown = rowsContaining(m_session->metadata(), m_filter->text().toStdString());
        m_shownSource = m_session->metadata().id;
        m_shownFilter = m_filter->text();
    }
    return m_shown;
}

void ServerView::stopSelectedProcess()
{
    const QueryResult &listed = shown();
    if (m_selectedRow < 0 || static_cast<std::size_t>(m_selectedRow) >= listed.rows.size() || listed.fields.empty()) {
        return;
    }
    // The process list's first column is its Id.
    const Cell id = listed.rows[static_cast<std::size_t>(m_selectedRow)].front();
    bool valid = false;
    const qulonglong process = id ? QString::fromStdString(*id).toULongLong(&valid) : 0;
    if (valid) {
        m_session->killProcess(process);
    }
}

} // namespace tallowick
