// ResourceDictionary: the "<key> <value>" line format over a QMap.
#include "base/xml/resourcedictionary.h"

#include <QRegularExpression>
#include <QStringList>

namespace mirel {

namespace {

// Compiled once; a QRegularExpression may be matched from several threads.
const QRegularExpression& entryPattern() {
    static const QRegularExpression pattern(
        QStringLiteral(R"((?:<\s*)([^>]+)(?:>\s*<\s*)([^>]+))"),
        QRegularExpression::CaseInsensitiveOption);
    return pattern;
}

}  // namespace

ResourceDictionary::ResourceDictionary() = default;
ResourceDictionary::ResourceDictionary(const ResourceDictionary& other) = default;
ResourceDictionary& ResourceDictionary::operator=(const ResourceDictionary& other) = default;
ResourceDictionary::~ResourceDictionary() = default;

bool ResourceDictionary::loadFromString(const QString& text) {
    bool success = true;
    for (const QString& line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (success) success = insertEntryFromString(line);
    }
    return success;
}

bool ResourceDictionary::insertEntryFromString(const QString& line) {
    const QRegularExpressionMatch match = entryPattern().match(line);
    // The captured texts always number three (the whole match and two groups), each null
    // after a failed search, and the search's own result is not consulted: a line that is
    // no entry inserts a null key with a null value.
    QStringList captured;
    for (int i = 0; i <= entryPattern().captureCount(); ++i) {
        captured << (match.hasMatch() ? match.captured(i) : QString());
    }
    if (captured.size() != 3) return false;
    entries.insert(captured[1], captured[2]);
    return true;
}

void ResourceDictionary::exportToString(QString& out) {
    out = QString();
    for (auto it = entries.cbegin(); it != entries.cend(); ++it) {
        out += createDictionaryEntryString(it.key(), it.value());
        out += QLatin1Char('\n');
    }
}

QString ResourceDictionary::createDictionaryEntryString(const QString& key, const QString& value) {
    return QStringLiteral("<%1> <%2>").arg(key).arg(value);
}

}  // namespace mirel
