#include "client/CellText.h"
#include "client/ExportFile.h"
#include "client/MySQLConnection.h"
#include "core/Csv.h"
#include "core/FileText.h"

namespace tallowick
{

std::int64_t MySQLConnection::exportCsv(
    const std::string &sql, const std::string &destination, const std::function<void(std::int64_t rows)> &progress)
{
    constexpr std::int64_t progressEvery = 10000;
    constexpr std::size_t flushBytes = 1 << 20;
    std::int64_t rows = 0;
    replaceWhenComplete(destination, [&](const std::string &partial) {
        ExportFile file(partial, "CSV file");
        std::string buffer;
        Row row;
        streamRows(
            sql,
            [&](const RawRow &raw) {
                row.clear();
                for (std::size_t i = 0; i < raw.binaryColumns.size(); ++i) {
                    if (!raw.values[i]) {
                        row.emplace_back(std::nullopt);
                        continue;
                    }
                    // As the grid shows it, so this file and "export displayed rows" agree.
                    row.emplace_back(cellText(std::string_view(raw.values[i], raw.lengths[i]), raw.binaryColumns[i]));
                }
                SQL::appendCsvRow(buffer, row);
                if (buffer.size() >= flushBytes) {
                    file.write(buffer);
                    buffer.clear();
                }
                if (++rows % progressEvery == 0 && progress) {
                    progress(rows);
                }
            },
            [&buffer](const std::vector<std::string> &names) { SQL::appendCsvHeader(buffer, names); });
        file.write(buffer);
        file.close();
    });
    return rows;
}

} // namespace tallowick
