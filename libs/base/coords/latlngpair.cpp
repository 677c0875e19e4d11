// Pairs, latitudes and longitudes. As for single values, the regular expressions define
// the answers (the Try functions use nothing else), and ParseFrom puts the scanner in
// front of them for every text short enough to scan.
#include "base/coords/latlngpair.h"

#include "base/coords/coordpatterns_p.h"
#include "base/coords/coordscan_p.h"
#include "base/coords/latlngvalue.h"

namespace mirel {

namespace {

QRegularExpression compiled(const QString& pattern) {
    QRegularExpression re(QRegularExpression::anchoredPattern(pattern));
    re.optimize();
    return re;
}

QString group(const QString& alternation) { return QLatin1Char('(') + alternation + QLatin1Char(')'); }

char16_t firstCode(QStringView text) {
    if (text.isEmpty() || text.front().unicode() > 0xFF) return 0;
    return text.front().unicode();
}

bool validDirection(QStringView t) {
    switch (firstCode(t)) {
    case 'E': case 'N': case 'S': case 'W': case 'e': case 'n': case 's': case 'w': return true;
    default: return false;
    }
}
bool nsDirection(QStringView t) {
    const char16_t c = firstCode(t);
    return c == 'N' || c == 'S' || c == 'n' || c == 's';
}
bool ewDirection(QStringView t) {
    const char16_t c = firstCode(t);
    return c == 'E' || c == 'W' || c == 'e' || c == 'w';
}
bool validSign(QStringView t) {
    // An absent sign is a valid sign.
    if (t.isEmpty()) return true;
    const char16_t c = firstCode(t);
    return c == '+' || c == '-';
}
bool negativeDirection(QStringView t) {
    const char16_t c = firstCode(t);
    return c == 'S' || c == 's' || c == 'W' || c == 'w' || c == '-';
}

// The value reading of the pattern path: the value patterns and nothing else.
bool valueByPatterns(QStringView text, double* out) {
    LatLngValue v(out);
    return coords::parseValueByPatterns(v, text.toString());
}

// The value reading of the scanning path.
bool valueByScan(QStringView text, double* out) {
    switch (coords::scanValue(text, out)) {
    case coords::Scan::Accepted: return true;
    case coords::Scan::Refused: return false;
    case coords::Scan::Undecided: break;
    }
    return valueByPatterns(text, out);
}

// Two values with hemisphere letters, in either order. Sets *lat and *lng only on success.
template <class ReadValue>
bool lettered(ReadValue readValue, QStringView firstText, QStringView firstLetter, QStringView secondText,
              QStringView secondLetter, double* lat, double* lng) {
    double first = 0, second = 0;
    if (!readValue(firstText, &first) || !readValue(secondText, &second)) return false;
    if (!validDirection(firstLetter) || !validDirection(secondLetter)) return false;
    if (negativeDirection(firstLetter)) first = -first;
    if (negativeDirection(secondLetter)) second = -second;
    if (nsDirection(firstLetter) && ewDirection(secondLetter)) {
        *lat = first;
        *lng = second;
    } else if (ewDirection(firstLetter) && nsDirection(secondLetter)) {
        *lat = second;
        *lng = first;
    } else {
        return false;  // two letters of one axis
    }
    return true;
}

// Two signed values: always latitude first, never swapped.
template <class ReadValue>
bool signedPair(ReadValue readValue, QStringView firstSign, QStringView firstText, QStringView secondSign,
                QStringView secondText, double* lat, double* lng) {
    double first = 0, second = 0;
    if (!readValue(firstText, &first) || !readValue(secondText, &second)) return false;
    if (!validSign(firstSign) || !validSign(secondSign)) return false;
    if (firstSign == u"-") first = -first;
    if (secondSign == u"-") second = -second;
    *lat = first;
    *lng = second;
    return true;
}

template <class ReadValue>
bool oneLettered(ReadValue readValue, QStringView text, QStringView letter, double* value) {
    double v = 0;
    if (!readValue(text, &v) || !validDirection(letter)) return false;
    *value = negativeDirection(letter) ? -v : v;
    return true;
}

template <class ReadValue>
bool oneSigned(ReadValue readValue, QStringView sign, QStringView text, double* value) {
    double v = 0;
    if (!readValue(text, &v) || !validSign(sign)) return false;
    *value = sign == u"-" ? -v : v;
    return true;
}

// The latitude test and the stores that end every pair parse.
bool finishPair(LatLngPair& p, bool found) {
    if (!found || p.lat < -90 || p.lat > 90) return false;
    if (p.latTarget != nullptr) *p.latTarget = p.lat;
    if (p.lngTarget != nullptr) *p.lngTarget = p.lng;
    return true;
}

bool scanPair(LatLngPair& p, QStringView text) {
    for (int slot = 0; slot < 6; ++slot) {
        coords::Span c[5];
        if (!coords::matchPair(text, slot, c)) continue;
        const bool read = slot % 3 == 2
            ? signedPair(valueByScan, c[1].in(text), c[2].in(text), c[3].in(text), c[4].in(text), &p.lat, &p.lng)
            : slot % 3 == 0
            ? lettered(valueByScan, c[1].in(text), c[2].in(text), c[3].in(text), c[4].in(text), &p.lat, &p.lng)
            : lettered(valueByScan, c[2].in(text), c[1].in(text), c[4].in(text), c[3].in(text), &p.lat, &p.lng);
        if (read) return true;
    }
    return false;
}

// A latitude or a longitude through the scanner: DA, DB, SB.
bool scanSingle(QStringView text, const char* letters, double* value) {
    for (int slot = 0; slot < 3; ++slot) {
        coords::Span c[3];
        if (!coords::matchSingle(text, slot, letters, c)) continue;
        const bool read = slot == 2 ? oneSigned(valueByScan, c[1].in(text), c[2].in(text), value)
                          : slot == 0 ? oneLettered(valueByScan, c[1].in(text), c[2].in(text), value)
                                      : oneLettered(valueByScan, c[2].in(text), c[1].in(text), value);
        if (read) return true;
    }
    return false;
}

// The three single patterns over one letter class.
void compileSingle(QRegularExpression* table, const char* letters) {
    const QString g = group(coords::valueAlternation());
    const QString cls = QStringLiteral("([%1])").arg(QLatin1String(letters));
    table[0] = compiled(g + QStringLiteral("\\s*") + cls);
    table[1] = compiled(cls + QStringLiteral("\\s*") + g);
    table[2] = compiled(QStringLiteral("([-+])?\\s*") + g);
}

QString pairSearchPattern() {
    const QString n = QStringLiteral("(?:") + coords::valueAlternation() + QLatin1Char(')');
    const QString da = n + QStringLiteral("\\s*[NSEWnsew]\\s*[,/]?\\s*") + n + QStringLiteral("\\s*[NSEWnsew]");
    const QString db = QStringLiteral("[NSEWnsew]\\s*") + n + QStringLiteral("\\s*[,/]?\\s*[NSEWnsew]\\s*") + n;
    const QString sb = QStringLiteral("[-+]?\\s*") + n + QStringLiteral("\\s*[,/]?\\s*[-+]?\\s*") + n;
    return QLatin1Char('(') + da + QLatin1Char('|') + db + QLatin1Char('|') + sb + QLatin1Char(')');
}

}  // namespace

// Patterns ----------------------------------------------------------------------------------

std::atomic<LatLngPairPatterns*> LatLngPairPatterns::sSingleton{nullptr};
std::atomic<LatValuePatterns*> LatValuePatterns::sSingleton{nullptr};
std::atomic<LngValuePatterns*> LngValuePatterns::sSingleton{nullptr};

LatLngPairPatterns::LatLngPairPatterns() {
    for (int comma = 0; comma < 2; ++comma) {
        const QString g = group(comma ? coords::commaValueAlternation() : coords::valueAlternation());
        const QString letter = QStringLiteral("([NSEWnsew])");
        QRegularExpression* table = mPatterns + 3 * comma;
        table[0] = compiled(g + QStringLiteral("\\s*") + letter + QStringLiteral("\\s*[,/]?\\s*") + g +
                            QStringLiteral("\\s*") + letter);
        table[1] = compiled(letter + QStringLiteral("\\s*") + g + QStringLiteral("\\s*[,/]?\\s*") + letter +
                            QStringLiteral("\\s*") + g);
        // With a decimal comma only blanks may separate the halves: a comma there could
        // not be told from a decimal one.
        const QString between = comma ? QStringLiteral("\\s*") : QStringLiteral("\\s*[,/]?\\s*");
        table[2] = compiled(QStringLiteral("([-+])?\\s*") + g + between + QStringLiteral("([-+])?\\s*") + g);
    }
}

// Function-local statics, so two threads racing on the first parse share one instance.
LatLngPairPatterns* LatLngPairPatterns::getSingleton() {
    static LatLngPairPatterns* const instance = coords::publish(new LatLngPairPatterns, sSingleton);
    return instance;
}

LatValuePatterns::LatValuePatterns() { compileSingle(mPatterns, coords::kNorthSouth); }

LatValuePatterns* LatValuePatterns::getSingleton() {
    static LatValuePatterns* const instance = coords::publish(new LatValuePatterns, sSingleton);
    return instance;
}

LngValuePatterns::LngValuePatterns() { compileSingle(mPatterns, coords::kEastWest); }

LngValuePatterns* LngValuePatterns::getSingleton() {
    static LngValuePatterns* const instance = coords::publish(new LngValuePatterns, sSingleton);
    return instance;
}

// LatLngPair --------------------------------------------------------------------------------

const QString LatLngPair::kREPattern = pairSearchPattern();

LatLngPair::LatLngPair(double* lat, double* lng)
    : latTarget(lat), lngTarget(lng), lat(0), lng(0), patterns(LatLngPairPatterns::getSingleton()) {}

LatLngPair::LatLngPair() : LatLngPair(nullptr, nullptr) {}

LatLngPair::~LatLngPair() { patterns = nullptr; }

bool LatLngPair::Parse(const QString& text, double* lat, double* lng) {
    LatLngPair p(lat, lng);
    return p.ParseFrom(text);
}

bool LatLngPair::ParseFrom(const QString& text) {
    if (text.size() > coords::kScanLimit) return coords::parsePairByPatterns(*this, text);
    return finishPair(*this, scanPair(*this, text));
}

bool LatLngPair::TryDA(const QString& text, bool comma) {
    const QRegularExpression& re = patterns->mPatterns[comma ? 3 : 0];
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch() || re.captureCount() < 4) return false;
    return lettered(valueByPatterns, m.capturedView(1), m.capturedView(2), m.capturedView(3), m.capturedView(4),
                    &lat, &lng);
}

bool LatLngPair::TryDB(const QString& text, bool comma) {
    const QRegularExpression& re = patterns->mPatterns[comma ? 4 : 1];
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch() || re.captureCount() < 4) return false;
    return lettered(valueByPatterns, m.capturedView(2), m.capturedView(1), m.capturedView(4), m.capturedView(3),
                    &lat, &lng);
}

bool LatLngPair::TrySB(const QString& text, bool comma) {
    const QRegularExpression& re = patterns->mPatterns[comma ? 5 : 2];
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch() || re.captureCount() < 4) return false;
    return signedPair(valueByPatterns, m.capturedView(1), m.capturedView(2), m.capturedView(3),
                      m.capturedView(4), &lat, &lng);
}

// LatValue and LngValue ---------------------------------------------------------------------

namespace {

template <class Single>
bool singleTryDA(Single& s, const QString& text) {
    const QRegularExpression& re = s.patterns->mPatterns[0];
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch() || re.captureCount() < 2) return false;
    return oneLettered(valueByPatterns, m.capturedView(1), m.capturedView(2), &s.value);
}

template <class Single>
bool singleTryDB(Single& s, const QString& text) {
    const QRegularExpression& re = s.patterns->mPatterns[1];
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch() || re.captureCount() < 2) return false;
    return oneLettered(valueByPatterns, m.capturedView(2), m.capturedView(1), &s.value);
}

template <class Single>
bool singleTrySB(Single& s, const QString& text) {
    const QRegularExpression& re = s.patterns->mPatterns[2];
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch() || re.captureCount() < 2) return false;
    return oneSigned(valueByPatterns, m.capturedView(1), m.capturedView(2), &s.value);
}

template <class Single>
bool singleByPatterns(Single& s, const QString& text) {
    if (!(s.TryDA(text) || s.TryDB(text) || s.TrySB(text))) return false;
    if (s.target != nullptr) *s.target = s.value;
    return true;
}

template <class Single>
bool singleParseFrom(Single& s, const QString& text, const char* letters) {
    if (text.size() > coords::kScanLimit) return singleByPatterns(s, text);
    if (!scanSingle(text, letters, &s.value)) return false;
    if (s.target != nullptr) *s.target = s.value;
    return true;
}

}  // namespace

LatValue::LatValue(double* target) : target(target), value(0), patterns(LatValuePatterns::getSingleton()) {}
LatValue::LatValue() : LatValue(nullptr) {}
LatValue::~LatValue() { patterns = nullptr; }

bool LatValue::Parse(const QString& text, double* result) {
    LatValue v(result);
    return v.ParseFrom(text);
}
bool LatValue::ParseFrom(const QString& text) { return singleParseFrom(*this, text, coords::kNorthSouth); }
bool LatValue::TryDA(const QString& text) { return singleTryDA(*this, text); }
bool LatValue::TryDB(const QString& text) { return singleTryDB(*this, text); }
bool LatValue::TrySB(const QString& text) { return singleTrySB(*this, text); }

LngValue::LngValue(double* target) : target(target), value(0), patterns(LngValuePatterns::getSingleton()) {}
LngValue::LngValue() : LngValue(nullptr) {}
LngValue::~LngValue() { patterns = nullptr; }

bool LngValue::Parse(const QString& text, double* result) {
    LngValue v(result);
    return v.ParseFrom(text);
}
bool LngValue::ParseFrom(const QString& text) { return singleParseFrom(*this, text, coords::kEastWest); }
bool LngValue::TryDA(const QString& text) { return singleTryDA(*this, text); }
bool LngValue::TryDB(const QString& text) { return singleTryDB(*this, text); }
bool LngValue::TrySB(const QString& text) { return singleTrySB(*this, text); }

// Pattern path and first-character tests ------------------------------------------------------

namespace coords {

bool parsePairByPatterns(LatLngPair& p, const QString& text) {
    return finishPair(p, p.TryDA(text, false) || p.TryDB(text, false) || p.TrySB(text, false) ||
                             p.TryDA(text, true) || p.TryDB(text, true) || p.TrySB(text, true));
}
bool parseLatByPatterns(LatValue& v, const QString& text) { return singleByPatterns(v, text); }
bool parseLngByPatterns(LngValue& v, const QString& text) { return singleByPatterns(v, text); }

}  // namespace coords

bool is_valid_direction(const QString& text) { return validDirection(text); }
bool is_ns_direction(const QString& text) { return nsDirection(text); }
bool is_ew_direction(const QString& text) { return ewDirection(text); }
bool is_valid_sign(const QString& text) { return validSign(text); }
bool is_negative_direction(const QString& text) { return negativeDirection(text); }

}  // namespace mirel
