// How fast the result grid shows and scrolls the largest result the query workspace displays:
// 10,000 rows of 20 columns of mixed text with some NULLs.
//
//   QT_QPA_PLATFORM=offscreen build/tallowick_gridbench
//
// Prints the time from refresh() to the end of the grid's first paint (median of several runs,
// for a new grid and for a grid that already shows a result with the same columns), the
// process's peak and current memory around it, and the frame rate of scrolling from top to
// bottom a page at a time with a full repaint per step.

#include "ui/NativeGrid.h"
#include "ui/Theme.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QScrollBar>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <memory>
#include <random>
#include <vector>

using namespace tallowick;

namespace
{

constexpr std::size_t rowCount = 10'000;
constexpr int runs = 9;
constexpr qint64 patienceNs = 10'000'000'000;

// Records when its viewport paint has finished, which is what the user waits for.
class TimedGrid final : public NativeGrid
{
public:
    QElapsedTimer clock;
    qint64 paintedAtNs = -1;
    int paints = 0;

protected:
    void paintEvent(QPaintEvent *event) override
    {
        NativeGrid::paintEvent(event);
        ++paints;
        if (paintedAtNs < 0 && clock.isValid()) {
            paintedAtNs = clock.nsecsElapsed();
        }
    }
};

Field column(const char *name, bool primary = false)
{
    Field field;
    field.name = name;
    field.type = "253";
    field.primary = primary;
    field.nullable = !primary;
    field.database = "shop";
    field.table = "orders";
    field.originalName = name;
    return field;
}

QueryResult makeResult(std::mt19937 &random)
{
    static const char *const words[] = { "parcel",
        "late",
        "gift",
        "wrap",
        "fragile",
        "express",
        "return",
        "blue",
        "customer",
        "asked",
        "for",
        "a",
        "call",
        "before",
        "delivery",
        "the",
        "invoice",
        "address",
        "differs" };
    static const char *const statuses[] = { "paid", "pending", "shipped", "cancelled", "refunded" };
    static const char *const cities[] = { "Lisboa", "Tromsø", "Zürich", "Łódź", "Reykjavík", "Osaka", "Porto" };

    QueryResult result;
    result.fields = { column("id", true),
        column("customer_id"),
        column("email"),
        column("first_name"),
        column("last_name"),
        column("created_at"),
        column("updated_at"),
        column("status"),
        column("total"),
        column("currency"),
        column("note"),
        column("sku"),
        column("quantity"),
        column("price"),
        column("discount"),
        column("country"),
        column("city"),
        column("postal_code"),
        column("phone"),
        column("tags") };
    std::uniform_int_distribution<int> percent(0, 99);
    std::uniform_int_distribution<int> number(0, 999'999);
    auto pick = [&random](const auto &list) {
        std::uniform_int_distribution<std::size_t> at(0, std::size(list) - 1);
        return std::string(list[at(random)]);
    };
    auto sentence = [&](int wordCount) {
        std::string text;
        for (int i = 0; i < wordCount; ++i) {
            text += (i ? " " : "") + pick(words);
        }
        return text;
    };
    auto maybe = [&](std::string value) { return percent(random) < 6 ? Cell() : Cell(std::move(value)); };

    result.rows.reserve(rowCount);
    for (std::size_t i = 0; i < rowCount; ++i) {
        const std::string n = std::to_string(i + 1);
        const std::string date = "2024-0" + std::to_string(1 + i % 9) + "-" + std::to_string(10 + i % 18) + " "
            + std::to_string(10 + i % 13) + ":" + std::to_string(10 + i % 49) + ":" + std::to_string(10 + i % 47);
        result.rows.push_back({ n,
            std::to_string(number(random)),
            maybe("user" + std::to_string(number(random)) + "@example.org"),
            maybe(pick(words)),
            maybe(pick(words) + "son"),
            date,
            maybe(date),
            pick(statuses),
            std::to_string(number(random) / 100) + "." + std::to_string(10 + number(random) % 90),
            "EUR",
            maybe(sentence(3 + percent(random) % 14)),
            "SKU-" + std::to_string(number(random)),
            std::to_string(1 + percent(random) % 12),
            std::to_string(number(random) % 500) + ".99",
            maybe("0." + std::to_string(percent(random))),
            "PT",
            maybe(pick(cities)),
            std::to_string(1000 + number(random) % 9000) + "-" + std::to_string(100 + percent(random)),
            maybe("+351 " + std::to_string(900'000'000 + number(random))),
            maybe("{\"tags\": [\"" + pick(words) + "\", \"" + pick(words) + "\"]}") });
    }
    result.message = std::to_string(rowCount) + " rows";
    return result;
}

// A value in kB from /proc/self/status, e.g. VmHWM (peak resident set) or VmRSS.
long statusKilobytes(const char *key)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const QByteArray prefix = QByteArray(key) + ':';
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(prefix)) {
            return line.mid(prefix.size()).trimmed().split(' ').first().toLong();
        }
    }
    return -1;
}

// Bytes the heap has handed out and not taken back; unlike the resident set it does not hide an
// allocation behind memory that an earlier, destroyed grid left to the allocator.
double heapInUseMegabytes()
{
    return static_cast<double>(mallinfo2().uordblks) / (1024.0 * 1024.0);
}

void printMemory(const char *when)
{
    std::printf("  %-44s VmRSS %7.1f MB   VmHWM %7.1f MB\n",
        when,
        static_cast<double>(statusKilobytes("VmRSS")) / 1024.0,
        static_cast<double>(statusKilobytes("VmHWM")) / 1024.0);
}

bool waitForPaint(TimedGrid &grid)
{
    QElapsedTimer patience;
    patience.start();
    while (grid.paintedAtNs < 0 && patience.nsecsElapsed() < patienceNs) {
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    }
    return grid.paintedAtNs >= 0;
}

std::unique_ptr<TimedGrid> shownGrid()
{
    auto grid = std::make_unique<TimedGrid>();
    grid->resize(1400, 900);
    grid->show();
    grid->clock.start();
    waitForPaint(*grid);
    return grid;
}

struct Timing {
    double refreshMs;
    double paintedMs;
};

// refresh() and then the event loop until the grid has painted.
Timing timeRefresh(TimedGrid &grid, const QueryResult &result)
{
    grid.paintedAtNs = -1;
    grid.clock.start();
    grid.refresh(result, true, -1);
    const qint64 refreshed = grid.clock.nsecsElapsed();
    if (!waitForPaint(grid)) {
        std::fprintf(stderr, "the grid never painted\n");
        std::exit(1);
    }
    return { static_cast<double>(refreshed) / 1e6, static_cast<double>(grid.paintedAtNs) / 1e6 };
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void report(const char *what, const std::vector<Timing> &timings)
{
    std::vector<double> refresh;
    std::vector<double> painted;
    for (const Timing &timing : timings) {
        refresh.push_back(timing.refreshMs);
        painted.push_back(timing.paintedMs);
    }
    std::printf("  %-44s refresh() %6.2f ms   first paint done %6.2f ms   (min %.2f, max %.2f)\n",
        what,
        median(refresh),
        median(painted),
        *std::min_element(painted.begin(), painted.end()),
        *std::max_element(painted.begin(), painted.end()));
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    applyWorkspaceStyle(app);
    std::printf("Result grid, %zu rows x 20 columns, platform %s, %d runs (median)\n",
        rowCount,
        qPrintable(QGuiApplication::platformName()),
        runs);

    printMemory("before building the results");
    std::mt19937 random(20240517);
    std::vector<QueryResult> results;
    const double heapBeforeResults = heapInUseMegabytes();
    for (int i = 0; i < runs + 1; ++i) {
        results.push_back(makeResult(random));
    }
    const double resultMegabytes = (heapInUseMegabytes() - heapBeforeResults) / (runs + 1);
    printMemory("results built (grid not yet created)");

    // Warm-up: fonts, style and glyph caches are loaded once per process.
    {
        auto grid = shownGrid();
        timeRefresh(*grid, results[runs]);
    }
    printMemory("after warm-up grid (destroyed)");

    std::vector<Timing> fresh;
    for (int i = 0; i < runs; ++i) {
        auto grid = shownGrid();
        fresh.push_back(timeRefresh(*grid, results[static_cast<std::size_t>(i)]));
    }

    auto grid = shownGrid();
    const double heapWithoutResult = heapInUseMegabytes();
    timeRefresh(*grid, results[runs]);
    const double heapWithResult = heapInUseMegabytes();
    std::vector<Timing> reload;
    for (int i = 0; i < runs; ++i) {
        reload.push_back(timeRefresh(*grid, results[static_cast<std::size_t>(i)]));
    }

    std::printf("\nFrom refresh() to the end of the grid's first paint:\n");
    report("new grid, first result", fresh);
    report("grid showing a result, new one, same columns", reload);

    std::printf("\nMemory:\n");
    std::printf("  one result held by a shown grid: heap in use grows by %.1f MB (one result: %.1f MB)\n",
        heapWithResult - heapWithoutResult,
        resultMegabytes);
    printMemory("after all runs");

    // Scrolling: a page at a time from top to bottom, each step painted before the next.
    QScrollBar *bar = grid->verticalScrollBar();
    bar->setValue(0);
    grid->viewport()->repaint();
    std::vector<double> frames;
    const int paintsBefore = grid->paints;
    QElapsedTimer whole;
    whole.start();
    while (bar->value() < bar->maximum()) {
        QElapsedTimer frame;
        frame.start();
        bar->setValue(std::min(bar->value() + bar->pageStep(), bar->maximum()));
        grid->viewport()->repaint();
        frames.push_back(static_cast<double>(frame.nsecsElapsed()) / 1e6);
    }
    const double seconds = static_cast<double>(whole.nsecsElapsed()) / 1e9;
    const double worst = *std::max_element(frames.begin(), frames.end());
    std::printf("\nScrolling top to bottom by pages (%d px viewport, %zu steps, %d paints):\n",
        grid->viewport()->height(),
        frames.size(),
        grid->paints - paintsBefore);
    std::printf("  %.1f frames per second   median frame %.2f ms   worst frame %.2f ms   total %.1f ms\n",
        static_cast<double>(frames.size()) / seconds,
        median(frames),
        worst,
        seconds * 1000.0);
    return 0;
}
