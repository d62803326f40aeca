#include "ui/UsersView.h"

#include "session/ServerSession.h"
#include "ui/ManagementForm.h"
#include "ui/NativeGrid.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSplitter>
#include <QVBoxLayout>

namespace tallowick
{

UsersView::UsersView(ServerSession &session, QWidget *parent)
    : QWidget(parent)
    , m_session(&session)
    , m_reload(new QPushButton(QStringLiteral("Reload")))
    , m_createUser(new QPushButton(QStringLiteral("Create user…")))
    , m_accounts(new NativeGrid)
    , m_grantsTitle(new QLabel(QStringLiteral("Choose an account to see its grants.")))
    , m_grants(new NativeGrid)
{
    auto *title = new QLabel(QStringLiteral("Accounts"));
    QFont bold = title->font();
    bold.setWeight(QFont::DemiBold);
    title->setFont(bold);
    m_grantsTitle->setFont(bold);
    auto *bar = new QHBoxLayout;
    bar->addWidget(title, 1);
    bar->addWidget(m_createUser);
    bar->addWidget(m_reload);

    auto *lower = new QWidget;
    auto *lowerLayout = new QVBoxLayout(lower);
    lowerLayout->setContentsMargins(0, 6, 0, 0);
    lowerLayout->addWidget(m_grantsTitle);
    lowerLayout->addWidget(m_grants, 1);
    auto *split = new QSplitter(Qt::Vertical);
    split->addWidget(m_accounts);
    split->addWidget(lower);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 8, 14, 8);
    layout->addLayout(bar);
    layout->addWidget(split, 1);

    QObject::connect(m_reload, &QPushButton::clicked, this, [this] { m_session->users(); });
    QObject::connect(m_createUser, &QPushButton::clicked, this, [this] {
        auto *form
            = new ManagementForm(*m_session, m_session->prompts(), ManagementSheet::createUser, std::nullopt, this);
        form->setAttribute(Qt::WA_DeleteOnClose);
        form->open();
    });
    QObject::connect(m_accounts, &NativeGrid::rowSelected, this, &UsersView::accountChosen);
    QObject::connect(&session, &ServerSession::metadataChanged, this, &UsersView::refresh);
    QObject::connect(&session, &ServerSession::userGrantsChanged, this, &UsersView::refresh);
    QObject::connect(&session, &ServerSession::busyChanged, this, &UsersView::refresh);
    refresh();
}

void UsersView::refresh()
{
    if (!m_session) {
        return;
    }
    m_accounts->refresh(m_session->metadata(), false, m_selectedRow);
    m_grants->refresh(m_session->userGrants(), false, -1);
    m_reload->setEnabled(!m_session->busy());
    m_createUser->setEnabled(!m_session->busy() && !m_session->profile().readOnly);
}

void UsersView::accountChosen(std::int64_t row)
{
    m_selectedRow = row;
    const QueryResult &accounts = m_session->metadata();
    if (row < 0 || static_cast<std::size_t>(row) >= accounts.rows.size() || accounts.fields.size() < 2) {
        return;
    }
    const Row &account = accounts.rows[static_cast<std::size_t>(row)];
    const std::string user = account[0].value_or("");
    const std::string host = account[1].value_or("");
    m_grantsTitle->setText(
        QStringLiteral("Grants of %1@%2").arg(QString::fromStdString(user), QString::fromStdString(host)));
    m_session->grants(user, host);
}

} // namespace tallowick
