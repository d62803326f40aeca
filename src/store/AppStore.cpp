#include "store/AppStore.h"

#include "core/AppError.h"
#include "core/ConnectionProfileJson.h"
#include "core/FileText.h"
#include "core/MainThread.h"
#include "core/QueryLogJson.h"
#include "credentials/Keychain.h"
#include "session/SerialLane.h"
#include "session/ServerSession.h"
#include "session/UserPrompts.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <algorithm>

namespace tallowick
{

std::string AppStore::defaultFolder()
{
    QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty()) {
        base = QDir::homePath() + QStringLiteral("/.local/share");
    }
    return QDir(base).filePath(QStringLiteral("Tallowick")).toStdString();
}

std::vector<ConnectionProfile> AppStore::savedProfiles(const std::string &folder)
{
    const QString path = QDir(QString::fromStdString(folder)).filePath(QStringLiteral("connections.json"));
    return QFileInfo::exists(path) ? decodeProfiles(readWholeFile(path.toStdString()))
                                   : std::vector<ConnectionProfile> {};
}

SshTunnels AppStore::savedTunnels(const std::string &folder)
{
    const QString path = QDir(QString::fromStdString(folder)).filePath(QStringLiteral("ssh-tunnels.json"));
    return QFileInfo::exists(path) ? decodeSshTunnels(readWholeFile(path.toStdString())) : SshTunnels {};
}

AppStore::AppStore(
    const std::optional<std::string> &folder, std::shared_ptr<Keychain> keychain, UserPrompts &prompts, QObject *parent)
    : QObject(parent)
    , m_folder(folder.value_or(defaultFolder()))
    , m_keychain(std::move(keychain))
    , m_keyringWrites(std::make_unique<SerialLane>("Tallowick.keyring"))
    , m_prompts(prompts)
{
    QDir().mkpath(QString::fromStdString(m_folder));
    loadFiles();
}

AppStore::~AppStore() = default;

std::string AppStore::connectionsPath() const
{
    return QDir(QString::fromStdString(m_folder)).filePath(QStringLiteral("connections.json")).toStdString();
}

std::string AppStore::tunnelsPath() const
{
    return QDir(QString::fromStdString(m_folder)).filePath(QStringLiteral("ssh-tunnels.json")).toStdString();
}

std::optional<SshTunnelSettings> AppStore::tunnel(const QUuid &profileID) const
{
    const auto found = m_tunnels.find(profileID);
    return found == m_tunnels.end() ? std::nullopt : std::optional(found->second);
}

std::string AppStore::historyPath() const
{
    return QDir(QString::fromStdString(m_folder)).filePath(QStringLiteral("history.json")).toStdString();
}

void AppStore::loadFiles()
{
    try {
        m_profiles = savedProfiles(m_folder);
    } catch (const AppError &failure) {
        // The file stays as it is until the next save overwrites it.
        m_profiles.clear();
        m_error = "Could not load saved connections: " + failure.message();
    }
    try {
        m_tunnels = savedTunnels(m_folder);
    } catch (const AppError &failure) {
        // Connections without their tunnel would go straight to the database host instead.
        m_tunnels.clear();
        m_error = "Could not load saved SSH tunnels: " + failure.message();
    }
    try {
        m_history = decodeQueryLogs(readWholeFile(historyPath()));
    } catch (const AppError &) {
        m_history.clear(); // a missing or damaged history is not worth a message
    }
}

void AppStore::announce(void (AppStore::*notify)())
{
    Q_EMIT(this->*notify)();
    Q_EMIT changed();
}

void AppStore::setSelected(const std::optional<QUuid> &id)
{
    if (m_selected != id) {
        m_selected = id;
        announce(&AppStore::selectedChanged);
    }
}

void AppStore::setError(const std::optional<std::string> &error)
{
    if (m_error != error) {
        m_error = error;
        announce(&AppStore::errorChanged);
    }
}

void AppStore::openConnectionSheet(
    const std::optional<ConnectionProfile> &profile, const std::optional<SshTunnelSettings> &tunnel)
{
    m_editingProfile = profile;
    m_editingTunnel = tunnel ? tunnel : profile ? this->tunnel(profile->id) : std::nullopt;
    announce(&AppStore::editingProfileChanged);
    m_showConnection = true;
    announce(&AppStore::showConnectionChanged);
}

void AppStore::closeConnectionSheet()
{
    if (m_showConnection) {
        m_showConnection = false;
        announce(&AppStore::showConnectionChanged);
    }
}

ServerSession *AppStore::session(const ConnectionProfile &profile)
{
    if (const auto found = m_sessions.find(profile.id); found != m_sessions.end()) {
        return found->second;
    }
    auto *created = new ServerSession(profile, m_keychain, m_prompts, this);
    created->setTunnel(tunnel(profile.id));
    if (const auto carried = m_carriedTabs.find(profile.id); carried != m_carriedTabs.end()) {
        created->adoptTabs(std::move(carried->second));
        m_carriedTabs.erase(carried);
    }
    QObject::connect(created, &ServerSession::changed, this, &AppStore::changed);
    QObject::connect(created, &ServerSession::historyEntryCreated, this, &AppStore::appendHistory);
    m_sessions.emplace(profile.id, created);
    announce(&AppStore::sessionsChanged);
    return created;
}

ServerSession *AppStore::active() const
{
    if (!m_selected) {
        return nullptr;
    }
    const auto found = m_sessions.find(*m_selected);
    return found == m_sessions.end() ? nullptr : found->second;
}

void AppStore::connect(const ConnectionProfile &profile)
{
    ServerSession *opened = session(profile);
    setSelected(profile.id);
    if (!opened->connected()) {
        opened->connect();
    }
}

void AppStore::save(const ConnectionProfile &profile,
    const std::string &password,
    const std::optional<SshTunnelSettings> &tunnel,
    const std::string &sshSecret,
    SaveDone done)
{
    try {
        profile.validate();
        if (tunnel) {
            tunnel->validate();
        }
    } catch (const AppError &failure) {
        done(failure.message());
        return;
    }
    // The agent needs no secret; a stale one from an earlier tunnel is removed. Profiles that
    // never had a tunnel leave the keyring alone.
    const std::string secret = tunnel && tunnel->auth != SshAuth::agent ? sshSecret : std::string();
    const bool touchSecret = !secret.empty() || m_tunnels.contains(profile.id);
    const QPointer<AppStore> guard(this);
    m_keyringWrites->post([guard, keychain = m_keychain, profile, tunnel, password, secret, touchSecret, done] {
        std::optional<std::string> keyringError;
        try {
            keychain->save(password, profile.id);
            if (touchSecret) {
                keychain->save(secret, sshSecretID(profile.id));
            }
        } catch (const std::exception &failure) {
            keyringError = failure.what();
        }
        postToMainThread(guard, [profile, tunnel, keyringError, done](AppStore &store) {
            store.finishSave(profile, tunnel, keyringError, done);
        });
    });
}

void AppStore::finishSave(const ConnectionProfile &profile,
    const std::optional<SshTunnelSettings> &tunnel,
    const std::optional<std::string> &keyringError,
    const SaveDone &done)
{
    if (keyringError) {
        done(keyringError);
        return;
    }
    if (m_removed.count(profile.id) > 0) {
        done(std::nullopt);
        return;
    }
    const auto existing = std::find_if(
        m_profiles.begin(), m_profiles.end(), [&profile](const ConnectionProfile &p) { return p.id == profile.id; });
    if (existing != m_profiles.end()) {
        *existing = profile;
    } else {
        m_profiles.push_back(profile);
    }
    if (tunnel) {
        m_tunnels[profile.id] = *tunnel;
    } else {
        m_tunnels.erase(profile.id);
    }
    announce(&AppStore::profilesChanged);
    try {
        persist();
    } catch (const AppError &failure) {
        done(failure.message());
        return;
    }
    // An idle session is rebuilt from the new settings on the next connect; a busy one is
    // never torn down under a running statement.
    if (const auto found = m_sessions.find(profile.id); found != m_sessions.end() && !found->second->busy()) {
        // Its query tabs, saved or not, go on in the session made from the new settings.
        m_carriedTabs[profile.id] = found->second->tabs();
        found->second->disconnect();
        dropSession(profile.id);
    }
    done(std::nullopt);
}

void AppStore::remove(const ConnectionProfile &profile)
{
    const auto busy = [this, &profile] {
        const auto found = m_sessions.find(profile.id);
        return found != m_sessions.end() && found->second->busy();
    };
    if (busy()) {
        setError("Wait for this connection's current operation to finish.");
        return;
    }
    if (!m_prompts.confirmAction("Remove " + profile.name + "?",
            "This removes the saved connection and its keyring password. It does not change anything on the server.",
            "Remove connection")) {
        return;
    }
    // The dialog ran the event loop: a finished save may have replaced the session, or a job
    // may have started on it.
    if (busy()) {
        setError("Wait for this connection's current operation to finish.");
        return;
    }
    m_removed.insert(profile.id);
    const auto found = m_sessions.find(profile.id);
    std::vector<QUuid> items { profile.id };
    if (m_tunnels.contains(profile.id)) {
        items.push_back(sshSecretID(profile.id));
    }
    m_keyringWrites->post([keychain = m_keychain, items] {
        for (const QUuid &item : items) {
            try {
                keychain->remove(item);
            } catch (const std::exception &) {
                // The profile goes all the same; a stray keyring item holds no connection details.
            }
        }
    });
    if (found != m_sessions.end()) {
        found->second->disconnect();
        dropSession(profile.id);
    }
    m_profiles.erase(std::remove_if(m_profiles.begin(),
                         m_profiles.end(),
                         [&profile](const ConnectionProfile &p) { return p.id == profile.id; }),
        m_profiles.end());
    m_tunnels.erase(profile.id);
    announce(&AppStore::profilesChanged);
    if (m_selected == profile.id) {
        setSelected(std::nullopt);
    }
    try {
        persist();
    } catch (const AppError &failure) {
        setError(failure.message());
    }
}

void AppStore::dropSession(const QUuid &id)
{
    const auto found = m_sessions.find(id);
    if (found == m_sessions.end()) {
        return;
    }
    ServerSession *dropped = found->second;
    m_sessions.erase(found);
    QObject::disconnect(dropped, nullptr, this, nullptr);
    dropped->deleteLater();
    announce(&AppStore::sessionsChanged);
}

void AppStore::persist() const
{
    writeFileAtomically(connectionsPath(), encodeProfiles(m_profiles), ownerOnly);
    if (!m_tunnels.empty() || QFileInfo::exists(QString::fromStdString(tunnelsPath()))) {
        writeFileAtomically(tunnelsPath(), encodeSshTunnels(m_tunnels), ownerOnly);
    }
}

void AppStore::appendHistory(const QueryLog &entry)
{
    m_history.insert(m_history.begin(), entry);
    if (m_history.size() > historyLimit) {
        m_history.resize(historyLimit);
    }
    announce(&AppStore::historyChanged);
    try {
        writeFileAtomically(historyPath(), encodeQueryLogs(m_history), ownerOnly);
    } catch (const AppError &) {
        // The history in memory stays right; the file catches up with the next entry.
    }
}

void AppStore::loadPassword(const QUuid &id, PasswordLoaded done)
{
    const QPointer<AppStore> guard(this);
    runInBackground([guard, keychain = m_keychain, id, done] {
        std::optional<std::string> password;
        std::optional<std::string> error;
        try {
            password = keychain->load(id);
        } catch (const std::exception &failure) {
            error = failure.what();
        }
        postToMainThread(guard, [done, password, error](AppStore &) { done(password, error); });
    });
}

} // namespace tallowick
