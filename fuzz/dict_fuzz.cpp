// The input, as UTF-8 text, is loaded into a resource dictionary. Loading never fails; each
// line alone gives exactly one entry, either a real one (non-empty key and value without ">")
// or the null key with a null value; and the exported text loads back into the same map
// whenever no key or value holds a "%" (which the entry format fills as a marker).
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/xml/resourcedictionary.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    mirel::ResourceDictionary dictionary;
    require(dictionary.loadFromString(text));

    const QStringList lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    bool percent = false;
    for (const QString& line : lines) {
        mirel::ResourceDictionary one;
        require(one.insertEntryFromString(line));
        require(one.entries.size() == 1);
        const QString key = one.entries.firstKey();
        const QString value = one.entries.first();
        if (key.isNull()) {
            require(value.isNull());
        } else {
            require(!key.isEmpty() && !value.isEmpty());
            require(!key.contains(QLatin1Char('>')) && !value.contains(QLatin1Char('>')));
            require(line.contains(key) && line.contains(value));
            require(dictionary.entries.contains(key));
        }
        percent = percent || key.contains(QLatin1Char('%')) || value.contains(QLatin1Char('%'));
    }
    require(dictionary.entries.size() <= lines.size());

    QString exported;
    dictionary.exportToString(exported);
    require(exported.isNull() == dictionary.entries.isEmpty());
    require(exported.count(QLatin1Char('\n')) == dictionary.entries.size());
    if (!percent) {
        mirel::ResourceDictionary back;
        require(back.loadFromString(exported));
        require(back.entries == dictionary.entries);
    }
    return 0;
}
