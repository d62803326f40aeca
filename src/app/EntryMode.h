#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tallowick
{

struct SelfTestMode {
    bool operator==(const SelfTestMode &) const = default;
};

// The SSH host the integration checks reach the server through: "--ssh USER@HOST:PORT" with
// "--ssh-key FILE" and "--known-hosts FILE".
struct IntegrationTunnel {
    std::string user;
    std::string host;
    std::int64_t port = 22;
    std::string keyFile;
    std::string knownHosts;
    bool operator==(const IntegrationTunnel &) const = default;
};

struct IntegrationTestMode {
    std::int64_t port = 0;
    std::optional<std::string> ca;
    std::optional<IntegrationTunnel> tunnel;
    bool operator==(const IntegrationTestMode &) const = default;
};

// "--make-icon PATH [--size N]": the icon drawn N x N pixels (1024 without --size). A size that
// is not a number is kept as 0, which the icon writer refuses with a message.
struct MakeIconMode {
    std::string path;
    std::int64_t size = 1024;
    bool operator==(const MakeIconMode &) const = default;
};

struct VersionMode {
    bool operator==(const VersionMode &) const = default;
};

struct DesktopMode {
    bool operator==(const DesktopMode &) const = default;
};

using EntryMode = std::variant<SelfTestMode, IntegrationTestMode, MakeIconMode, VersionMode, DesktopMode>;

// Chooses the one mode to run. Arguments are whole, case-sensitive strings matched anywhere in
// the list, the program's own path included. "--self-test" wins over everything, then the
// integration checks, the icon and "--version"; a malformed or missing port, a malformed --ssh,
// or a missing icon path, falls through to the next mode without an error.
EntryMode chooseEntryMode(const std::vector<std::string> &arguments);

// A base-10 signed 64-bit integer: optional "+" or "-", then digits only; overflow rejected.
std::optional<std::int64_t> parsePortArgument(std::string_view text);

// Runs a non-interactive mode: 0 when it returns, 1 when it throws, after writing the error's
// message and one line feed to `errors`.
int runNonInteractive(const std::function<void()> &mode, std::ostream &errors);

} // namespace tallowick
