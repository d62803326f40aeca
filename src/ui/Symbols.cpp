#include "ui/Symbols.h"

#include "ui/Theme.h"

#include <QBuffer>
#include <QFile>
#include <QHash>
#include <QIconEngine>
#include <QImageReader>
#include <QLabel>
#include <QPainter>
#include <QRegularExpression>
#include <QString>

// Outside any namespace: the resource's initialiser is a global function.
static void registerIconResources()
{
    Q_INIT_RESOURCE(icons);
}

namespace tallowick
{

namespace
{

// The resource file of each symbol, without its ".svg".
const char *fileName(Symbol symbol)
{
    switch (symbol) {
    case Symbol::brand:
        return "brand";
    case Symbol::copy:
        return "copy";
    case Symbol::database:
        return "database";
    case Symbol::editor:
        return "editor";
    case Symbol::eye:
        return "eye";
    case Symbol::eyeOff:
        return "eye-off";
    case Symbol::filter:
        return "filter";
    case Symbol::key:
        return "key";
    case Symbol::lock:
        return "lock";
    case Symbol::pencil:
        return "pencil";
    case Symbol::plus:
        return "plus";
    case Symbol::plusOnAccent:
        return "plus-light";
    case Symbol::search:
        return "search";
    case Symbol::server:
        return "server";
    case Symbol::shield:
        return "shield";
    case Symbol::table:
        return "table";
    case Symbol::view:
        return "view";
    case Symbol::xmark:
        return "xmark";
    }
    return "";
}

// The brand mark and the symbol for the accent button keep their own colours in every theme.
bool keepsItsColors(Symbol symbol)
{
    return symbol == Symbol::brand || symbol == Symbol::plusOnAccent;
}

// The symbols are drawn in dark inks for a light window. On a dark one each dark ink is mirrored
// in lightness, keeping its hue, so a grey stays a grey and the teal stays teal.
QByteArray inkedFor(const QByteArray &svg, Appearance appearance)
{
    if (appearance == Appearance::light) {
        return svg;
    }
    static const QRegularExpression ink(QStringLiteral("#[0-9a-fA-F]{6}"));
    QString text = QString::fromUtf8(svg);
    QString result;
    qsizetype last = 0;
    for (const QRegularExpressionMatch &match : ink.globalMatch(text)) {
        const QColor color = QColor::fromString(match.captured());
        float hue = 0;
        float saturation = 0;
        float lightness = 0;
        color.getHslF(&hue, &saturation, &lightness);
        const QColor lifted = lightness < 0.55F ? QColor::fromHslF(hue, saturation, 1.05F - lightness) : color;
        result += QStringView(text).mid(last, match.capturedStart() - last);
        result += lifted.name();
        last = match.capturedEnd();
    }
    result += QStringView(text).mid(last);
    return result.toUtf8();
}

// Draws a symbol in the inks of the appearance on screen when it is painted, so icons already
// handed to buttons and tabs follow a change of theme.
class SymbolEngine final : public QIconEngine
{
public:
    explicit SymbolEngine(Symbol symbol)
        : m_symbol(symbol)
    {
    }

    QIconEngine *clone() const override { return new SymbolEngine(m_symbol); }

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State state) override
    {
        const qreal ratio = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
        QPixmap drawn = pixmap(rect.size() * ratio, mode, state);
        drawn.setDevicePixelRatio(ratio);
        painter->drawPixmap(rect, drawn);
    }

    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State) override
    {
        const Appearance appearance = keepsItsColors(m_symbol) ? Appearance::light : currentAppearance();
        const QString key = QStringLiteral("%1x%2/%3/%4")
                                .arg(size.width())
                                .arg(size.height())
                                .arg(static_cast<int>(mode))
                                .arg(static_cast<int>(appearance));
        if (const auto found = m_drawn.constFind(key); found != m_drawn.constEnd()) {
            return *found;
        }
        QByteArray svg = inkedFor(source(m_symbol), appearance);
        QBuffer buffer(&svg);
        QImageReader reader(&buffer, "svg");
        reader.setScaledSize(size);
        QImage image = reader.read();
        if (mode == QIcon::Disabled) {
            QImage faded(image.size(), QImage::Format_ARGB32_Premultiplied);
            faded.fill(Qt::transparent);
            QPainter painter(&faded);
            painter.setOpacity(0.4);
            painter.drawImage(0, 0, image);
            painter.end();
            image = faded;
        }
        const QPixmap drawn = QPixmap::fromImage(image);
        m_drawn.insert(key, drawn);
        return drawn;
    }

private:
    static const QByteArray &source(Symbol symbol)
    {
        static QHash<int, QByteArray> files;
        const int key = static_cast<int>(symbol);
        if (!files.contains(key)) {
            QFile file(QStringLiteral(":/icons/%1.svg").arg(QLatin1String(fileName(symbol))));
            files.insert(key, file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
        }
        return files[key];
    }

    Symbol m_symbol;
    // Rendering an SVG on every paint would slow long lists of rows with symbols.
    QHash<QString, QPixmap> m_drawn;
};

} // namespace

QIcon symbolIcon(Symbol symbol)
{
    // Registers the resource file of this static library before its first use.
    static const bool registered = [] {
        registerIconResources();
        return true;
    }();
    Q_UNUSED(registered);
    return QIcon(new SymbolEngine(symbol));
}

void showSymbol(QLabel *label, Symbol symbol, int size)
{
    followTheme(label, [label, symbol, size] { label->setPixmap(symbolIcon(symbol).pixmap(size, size)); });
}

} // namespace tallowick
