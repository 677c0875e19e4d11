// The value parser: the regular expressions are the definition, and the scanner in front
// of them answers every short text the same way without building a match object.
#include "base/coords/latlngvalue.h"

#include "base/coords/coordpatterns_p.h"
#include "base/coords/coordscan_p.h"

namespace mirel {

namespace {

const char* const kValuePatterns[6] = {
    "(\\d+(?!\\d)\\.?\\d*)(?:\u00b0)?",
    "(\\d+(?!\\d))(?:\u00b0)?\\s*(\\d+(?!\\d)\\.?\\d*)[`']?",
    "(\\d+(?!\\d))(?:\u00b0)?\\s*(\\d+(?!\\d))[`']?\\s*(\\d+(?!\\d)\\.?\\d*)(?:\"|'')?",
    "(\\d+(?!\\d)),(\\d+(?!\\d))(?:\u00b0)?",
    "(\\d+(?!\\d))(?:\u00b0)?\\s*(\\d+(?!\\d)),(\\d+(?!\\d))[`']?",
    "(\\d+(?!\\d))(?:\u00b0)?\\s*(\\d+(?!\\d))[`']?\\s*(\\d+(?!\\d)),(\\d+(?!\\d))(?:\"|'')?",
};

// Numbers as the pattern path reads them: QString::toDouble, which must report success.
struct QtReader {
    LatLngValue* owner;
    bool read(QStringView v, double* out) const {
        bool ok = false;
        *out = v.toDouble(&ok);
        return ok;
    }
    double fraction(QStringView digits) const { return owner->ConvertToFraction(digits.toString()); }
};

}  // namespace

namespace coords {

QString valueAlternation() {
    const QString all = QString::fromUtf8(kValuePatternUtf8);
    return all.mid(1, all.size() - 2);
}

QString commaValueAlternation() {
    return valueAlternation().replace(QStringLiteral("\\.?"), QStringLiteral("\\,?"));
}

bool parseValueByPatterns(LatLngValue& v, const QString& text) {
    if (!(v.TryDMSF(text, false) || v.TryDMF(text, false) || v.TryDF(text, false) ||
          v.TryDMSF(text, true) || v.TryDMF(text, true) || v.TryDF(text, true))) {
        return false;
    }
    if (v.target != nullptr) *v.target = v.value;
    return true;
}

}  // namespace coords

std::atomic<LatLngValuePatterns*> LatLngValuePatterns::sSingleton{nullptr};

LatLngValuePatterns::LatLngValuePatterns() {
    for (int i = 0; i < 6; ++i) {
        mPatterns[i].setPattern(QRegularExpression::anchoredPattern(QString::fromUtf8(kValuePatterns[i])));
        // Compiled here, once, rather than by whichever thread matches first.
        mPatterns[i].optimize();
    }
}

LatLngValuePatterns* LatLngValuePatterns::getSingleton() {
    // A function-local static, so two threads racing on the first parse share one instance.
    static LatLngValuePatterns* const instance = coords::publish(new LatLngValuePatterns, sSingleton);
    return instance;
}

const QString LatLngValue::kREPattern = QString::fromUtf8(coords::kValuePatternUtf8);

LatLngValue::LatLngValue(double* target)
    : target(target), value(0), patterns(LatLngValuePatterns::getSingleton()) {}

LatLngValue::LatLngValue() : LatLngValue(nullptr) {}

LatLngValue::~LatLngValue() { patterns = nullptr; }

bool LatLngValue::Parse(const QString& text, double* result) {
    LatLngValue v(result);
    return v.ParseFrom(text);
}

bool LatLngValue::ParseFrom(const QString& text) {
    double scanned = 0;
    switch (coords::scanValue(text, &scanned)) {
    case coords::Scan::Refused:
        return false;
    case coords::Scan::Accepted:
        value = scanned;
        if (target != nullptr) *target = value;
        return true;
    case coords::Scan::Undecided:
        break;
    }
    return coords::parseValueByPatterns(*this, text);
}

// A QRegularExpression keeps no match state, so the shared compiled pattern is matched
// directly where a copy used to be needed.
bool LatLngValue::TryDF(const QString& text, bool comma) {
    const QRegularExpression& re = patterns->mPatterns[comma ? 3 : 0];
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch() || re.captureCount() < 1) return false;
    return coords::evaluateDF(QtReader{this}, m.capturedView(1), m.capturedView(2), comma, &value);
}

bool LatLngValue::TryDMF(const QString& text, bool comma) {
    const QRegularExpression& re = patterns->mPatterns[comma ? 4 : 1];
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch() || re.captureCount() < 2) return false;
    return coords::evaluateDMF(QtReader{this}, m.capturedView(1), m.capturedView(2), m.capturedView(3), comma,
                               &value);
}

bool LatLngValue::TryDMSF(const QString& text, bool comma) {
    const QRegularExpression& re = patterns->mPatterns[comma ? 5 : 2];
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch() || re.captureCount() < 3) return false;
    return coords::evaluateDMSF(QtReader{this}, m.capturedView(1), m.capturedView(2), m.capturedView(3),
                                m.capturedView(4), comma, &value);
}

double LatLngValue::ConvertToFraction(const QString& digits) {
    bool ok = false;
    const double f = (QStringLiteral("0.") + digits).toDouble(&ok);
    return ok ? f : -1.0;
}

}  // namespace mirel
