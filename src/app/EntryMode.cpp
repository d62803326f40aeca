#include "app/EntryMode.h"

#include <algorithm>
#include <charconv>
#include <exception>

namespace tallowick
{

namespace
{

// The argument after the first occurrence of `flag`, when there is one.
std::optional<std::string> valueAfter(const std::vector<std::string> &arguments, std::string_view flag)
{
    const auto found = std::find(arguments.begin(), arguments.end(), flag);
    if (found == arguments.end() || std::next(found) == arguments.end()) {
        return std::nullopt;
    }
    return *std::next(found);
}

// "USER@HOST:PORT", with the key file and known-hosts file that must come with it.
std::optional<IntegrationTunnel> tunnelArgument(const std::vector<std::string> &arguments)
{
    const std::optional<std::string> ssh = valueAfter(arguments, "--ssh");
    const std::optional<std::string> key = valueAfter(arguments, "--ssh-key");
    const std::optional<std::string> knownHosts = valueAfter(arguments, "--known-hosts");
    const std::size_t at = ssh ? ssh->find('@') : std::string::npos;
    const std::size_t colon = ssh ? ssh->rfind(':') : std::string::npos;
    if (!key || !knownHosts || at == std::string::npos || colon == std::string::npos || colon < at + 2 || at == 0) {
        return std::nullopt;
    }
    const std::optional<std::int64_t> port = parsePortArgument(std::string_view(*ssh).substr(colon + 1));
    if (!port) {
        return std::nullopt;
    }
    return IntegrationTunnel { ssh->substr(0, at), ssh->substr(at + 1, colon - at - 1), *port, *key, *knownHosts };
}

} // namespace

std::optional<std::int64_t> parsePortArgument(std::string_view text)
{
    std::string_view digits = text;
    bool negative = false;
    if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) {
        negative = digits.front() == '-';
        digits.remove_prefix(1);
    }
    if (digits.empty() || !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return std::nullopt;
    }
    // Parse with the sign attached so that the most negative value is accepted and anything
    // beyond the range is an overflow.
    const std::string signedDigits = (negative ? "-" : "") + std::string(digits);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(signedDigits.data(), signedDigits.data() + signedDigits.size(), value);
    if (error != std::errc() || end != signedDigits.data() + signedDigits.size()) {
        return std::nullopt;
    }
    return value;
}

EntryMode chooseEntryMode(const std::vector<std::string> &arguments)
{
    if (std::find(arguments.begin(), arguments.end(), "--self-test") != arguments.end()) {
        return SelfTestMode {};
    }
    if (const auto portText = valueAfter(arguments, "--integration-test")) {
        const auto port = parsePortArgument(*portText);
        const std::optional<IntegrationTunnel> tunnel = tunnelArgument(arguments);
        const bool tunnelAsked = std::find(arguments.begin(), arguments.end(), "--ssh") != arguments.end();
        if (port && tunnel.has_value() == tunnelAsked) {
            return IntegrationTestMode { *port, valueAfter(arguments, "--ca"), tunnel };
        }
    }
    if (const auto path = valueAfter(arguments, "--make-icon")) {
        if (std::find(arguments.begin(), arguments.end(), "--size") == arguments.end()) {
            return MakeIconMode { *path };
        }
        const std::optional<std::string> size = valueAfter(arguments, "--size");
        return MakeIconMode { *path, size ? parsePortArgument(*size).value_or(0) : 0 };
    }
    if (std::find(arguments.begin(), arguments.end(), "--version") != arguments.end()) {
        return VersionMode {};
    }
    return DesktopMode {};
}

int runNonInteractive(const std::function<void()> &mode, std::ostream &errors)
{
    try {
        mode();
        return 0;
    } catch (const std::exception &error) {
        errors << error.what() << '\n' << std::flush;
        return 1;
    }
}

} // namespace tallowick
