#pragma once

#include "core/AppError.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <string>
#include <vector>

namespace tallowick
{

// Decodes a JSON array of entries with `decodeOne(object, label)`; any unreadable entry fails
// the whole list, as a half-read file would silently drop saved data.
template <typename T, typename DecodeOne>
std::vector<T> decodeJsonList(const QByteArray &json, const std::string &entryWord, DecodeOne decodeOne)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        throw AppError("The file is not valid JSON (" + parseError.errorString().toStdString() + " at offset "
            + std::to_string(parseError.offset) + ").");
    }
    if (!document.isArray()) {
        throw AppError("The file does not hold a list of " + entryWord + "s.");
    }
    const QJsonArray array = document.array();
    std::vector<T> entries;
    entries.reserve(static_cast<std::size_t>(array.size()));
    for (qsizetype i = 0; i < array.size(); ++i) {
        const std::string label = "The " + entryWord + " at position " + std::to_string(i + 1);
        if (!array.at(i).isObject()) {
            throw AppError(label + " is not a JSON object.");
        }
        entries.push_back(decodeOne(array.at(i).toObject(), label));
    }
    return entries;
}

template <typename T, typename EncodeOne> QByteArray encodeJsonList(const std::vector<T> &entries, EncodeOne encodeOne)
{
    QByteArray text = "[";
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (i > 0) {
            text += ',';
        }
        text += encodeOne(entries[i]);
    }
    text += ']';
    return text;
}

} // namespace tallowick
