// ResourceDictionary: a string-to-string dictionary with a line-oriented text form, for
// string resources. Each entry is one line "<key> <value>"; the dictionary loads such text,
// adds single lines, and writes itself back in ascending key order.
//
// Nothing is escaped: a key or value holding ">" or a line break does not survive a round
// trip. A line that is not an entry is not rejected: it adds an entry with a null key and a
// null value (that is how the format has always been read).
//
// Copies share their map until one of them changes (Qt's implicit sharing). One dictionary
// is not synchronised; separate copies may be used from separate threads.
#pragma once

#include <QMap>
#include <QString>

#include "base/mirel_export.h"

namespace mirel {

class MIREL_EXPORT ResourceDictionary {
public:
    ResourceDictionary();
    // Shares `other`'s map; the first change to either detaches it.
    ResourceDictionary(const ResourceDictionary& other);
    ResourceDictionary& operator=(const ResourceDictionary& other);
    virtual ~ResourceDictionary();

    // Adds the entries of `text`, one per line; empty lines are skipped and nothing is
    // cleared first. After a line fails, later lines are not inserted. True unless a line
    // failed; an empty text changes nothing and gives true.
    bool loadFromString(const QString& text);
    // Adds the entry of one line, replacing an earlier value under the same key. Text before
    // the first "<" and after the value's ">" is ignored, blanks after "<" are skipped,
    // blanks before ">" stay in the key, and the value's closing ">" is optional. A line
    // that is not an entry inserts a null key with a null value. Returns true.
    bool insertEntryFromString(const QString& line);
    // Replaces `out` with every entry as "<key> <value>\n", in ascending key order; an empty
    // dictionary gives a null string.
    void exportToString(QString& out);
    // "<key> <value>", filled by two successive QString::arg calls, so a "%" marker in the
    // key is itself filled by the value.
    QString createDictionaryEntryString(const QString& key, const QString& value);

    QMap<QString, QString> entries;
};

}  // namespace mirel
