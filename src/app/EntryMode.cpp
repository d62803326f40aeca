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
        if (const auto port = parsePortArgument(*portText)) {
            return IntegrationTestMode { *port, valueAfter(arguments, "--ca") };
        }
    }
    if (const auto path = valueAfter(arguments, "--make-icon")) {
        return MakeIconMode { *path };
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
