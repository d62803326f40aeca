#pragma once

#include "core/ConnectionProfile.h"
#include "core/QueryLog.h"
#include "core/QueryTab.h"
#include "core/SshTunnelSettings.h"

#include <QObject>
#include <QUuid>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tallowick
{

class Keychain;
class SerialLane;
class ServerSession;
class UserPrompts;

// The application's one model object: saved profiles, one session per opened profile, the
// selection, the shared query history, and the files that keep them between runs
// ("connections.json", "history.json", and "ssh-tunnels.json" with the SSH tunnel of each profile
// that has one, keyed by profile id; all written atomically with permissions 0600). Passwords
// and SSH passphrases never enter these files; they live in the keyring.
//
// Main thread only. Keyring work is done in the background and reported back through callbacks.
class AppStore final : public QObject
{
    Q_OBJECT

public:
    static constexpr std::size_t historyLimit = 300;

    // The per-user data folder: $XDG_DATA_HOME/Tallowick.
    static std::string defaultFolder();
    // The profiles saved in `folder`, as the application reads them; none without a file.
    static std::vector<ConnectionProfile> savedProfiles(const std::string &folder);
    // The SSH tunnels saved in `folder`; none without a file.
    static SshTunnels savedTunnels(const std::string &folder);

    // Without a folder, the per-user data folder ($XDG_DATA_HOME/Tallowick). The folder is
    // created when missing; both files are read at once. Never connects by itself.
    AppStore(const std::optional<std::string> &folder,
        std::shared_ptr<Keychain> keychain,
        UserPrompts &prompts,
        QObject *parent = nullptr);
    ~AppStore() override;

    const std::string &folder() const { return m_folder; }
    const std::vector<ConnectionProfile> &profiles() const { return m_profiles; }
    const std::map<QUuid, ServerSession *> &sessions() const { return m_sessions; }
    const std::optional<QUuid> &selected() const { return m_selected; }
    const std::vector<QueryLog> &history() const { return m_history; }
    const std::optional<std::string> &error() const { return m_error; }
    bool showConnection() const { return m_showConnection; }
    const std::optional<ConnectionProfile> &editingProfile() const { return m_editingProfile; }
    // The tunnel the connection sheet starts from: the edited profile's, or the original's for a
    // duplicate.
    const std::optional<SshTunnelSettings> &editingTunnel() const { return m_editingTunnel; }
    std::optional<SshTunnelSettings> tunnel(const QUuid &profileID) const;

    void setSelected(const std::optional<QUuid> &id);
    void setError(const std::optional<std::string> &error);
    // Opens the connection sheet for `profile`, or for a new profile without one. The sheet
    // starts from the profile's saved tunnel, or from `tunnel` when given (a duplicate).
    void openConnectionSheet(
        const std::optional<ConnectionProfile> &profile, const std::optional<SshTunnelSettings> &tunnel = std::nullopt);
    void closeConnectionSheet();

    // The profile's session, created on first use.
    ServerSession *session(const ConnectionProfile &profile);
    // The selected profile's session, when it has one.
    ServerSession *active() const;

    // Selects the profile and connects its session unless it is connected already.
    void connect(const ConnectionProfile &profile);

    using SaveDone = std::function<void(const std::optional<std::string> &error)>;
    // Validates the profile and its tunnel, stores its password (an empty one removes it) and
    // the tunnel's passphrase or password (removed without a tunnel, or for the agent), then
    // replaces the saved profile with the same id in place or appends it, and writes the
    // connections and tunnels files. An idle session of that profile is dropped so the next
    // connect uses the new settings; a busy one is left alone. `done` gets no value on success,
    // or the message to show.
    void save(const ConnectionProfile &profile,
        const std::string &password,
        const std::optional<SshTunnelSettings> &tunnel,
        const std::string &sshSecret,
        SaveDone done);
    void save(const ConnectionProfile &profile, const std::string &password, SaveDone done)
    {
        save(profile, password, std::nullopt, {}, std::move(done));
    }

    // Asks first; refuses while the profile's session is busy. Removes the password and SSH
    // secret (a keyring failure does not stop the removal), the session, the tunnel and the
    // profile.
    void remove(const ConnectionProfile &profile);

    // Writes connections.json, and ssh-tunnels.json once there is a tunnel; throws AppError.
    void persist() const;

    using PasswordLoaded
        = std::function<void(const std::optional<std::string> &password, const std::optional<std::string> &error)>;
    // Reads a saved secret in the background for the connection sheet: a profile's password by
    // its id, its SSH passphrase or password by sshSecretID(id).
    void loadPassword(const QUuid &id, PasswordLoaded done);

    std::string connectionsPath() const;
    std::string historyPath() const;
    std::string tunnelsPath() const;

Q_SIGNALS:
    void profilesChanged();
    void sessionsChanged();
    void selectedChanged();
    void historyChanged();
    void errorChanged();
    void showConnectionChanged();
    void editingProfileChanged();
    // After any change of the store or of any of its sessions.
    void changed();

private:
    void loadFiles();
    void appendHistory(const QueryLog &entry);
    void dropSession(const QUuid &id);
    void finishSave(const ConnectionProfile &profile,
        const std::optional<SshTunnelSettings> &tunnel,
        const std::optional<std::string> &keyringError,
        const SaveDone &done);
    void announce(void (AppStore::*notify)());

    std::string m_folder;
    const std::shared_ptr<Keychain> m_keychain;
    // Saves and removals of passwords, in the order they were asked for: a removal must never be
    // overtaken by an earlier save of the same profile.
    std::unique_ptr<SerialLane> m_keyringWrites;
    UserPrompts &m_prompts;
    std::vector<ConnectionProfile> m_profiles;
    std::map<QUuid, ServerSession *> m_sessions;
    std::optional<QUuid> m_selected;
    std::vector<QueryLog> m_history;
    std::optional<std::string> m_error;
    bool m_showConnection = false;
    std::optional<ConnectionProfile> m_editingProfile;
    std::optional<SshTunnelSettings> m_editingTunnel;
    // Query tabs of a session dropped for new settings, until the profile's next session.
    std::map<QUuid, std::vector<QueryTab>> m_carriedTabs;
    SshTunnels m_tunnels;
    // Profiles removed while their save was still with the keyring: that save must not bring
    // them back.
    std::set<QUuid> m_removed;
};

} // namespace tallowick
