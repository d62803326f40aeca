#pragma once

#include "core/AppError.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace tallowick
{

// A file written front to back through a large buffer, for exports of any size. Every failure
// throws AppError with the system's reason.
class ExportFile
{
public:
    // `noun` names the file in messages: "Cannot create the " + noun + ".".
    ExportFile(const std::string &path, std::string noun)
        : m_file(std::fopen(path.c_str(), "wb"))
        , m_noun(std::move(noun))
    {
        if (!m_file) {
            throw AppError("Cannot create the " + m_noun + ".");
        }
        std::setvbuf(m_file, nullptr, _IOFBF, 1 << 20);
    }

    ~ExportFile()
    {
        if (m_file) {
            std::fclose(m_file);
        }
    }

    ExportFile(const ExportFile &) = delete;
    ExportFile &operator=(const ExportFile &) = delete;

    void write(std::string_view text)
    {
        if (std::fwrite(text.data(), 1, text.size(), m_file) != text.size()) {
            fail();
        }
    }

    void close()
    {
        std::FILE *file = m_file;
        m_file = nullptr;
        if (std::fclose(file) != 0) {
            fail();
        }
    }

private:
    [[noreturn]] void fail() const
    {
        throw AppError("Could not write the " + m_noun + ": " + std::strerror(errno) + ".");
    }

    std::FILE *m_file;
    std::string m_noun;
};

} // namespace tallowick
