// A hand-written scanner for the coordinate patterns. It finds the same match, with the
// same captures, as the anchored regular expressions would: the value forms have only one
// way to cover a whole text, and the pair forms are walked by backtracking in the engine's
// own order (alternatives left to right, greedy parts longest first). The one shortcut is
// that a run of blanks is never given back: nothing that follows a "\s*" can start with a
// blank, so giving one back only reaches the same state again.
#pragma once

#include <QStringView>

#include "base/coords/coordpatterns_p.h"

#include <charconv>
#include <cstring>

namespace mirel::coords {

// Texts longer than this go to the regular expressions: backtracking over long runs of
// digits grows with the square of the length, and typed coordinates are short.
inline constexpr qsizetype kScanLimit = 128;
// Longer digit runs are read by QString::toDouble, whose overflow and underflow rules the
// scanner does not repeat.
inline constexpr qsizetype kDigitLimit = 30;

enum class Scan { Refused, Accepted, Undecided };

// A captured part of the text; begin < 0 when its group took no part in the match.
struct Span {
    qsizetype begin = -1;
    qsizetype end = -1;
    QStringView in(QStringView text) const {
        return begin < 0 ? QStringView() : text.mid(begin, end - begin);
    }
};

// Reads the digits (and point) that the patterns admit; they are ASCII by construction.
struct FastReader {
    static bool toChars(QStringView v, char* buf, qsizetype room, qsizetype* len) {
        if (v.size() > room) return false;
        for (qsizetype i = 0; i < v.size(); ++i) buf[i] = static_cast<char>(v[i].unicode());
        *len = v.size();
        return true;
    }
    bool read(QStringView v, double* out) const {
        char buf[kDigitLimit + 2];
        qsizetype len = 0;
        if (v.isEmpty() || !toChars(v, buf, sizeof buf, &len)) return false;
        const auto r = std::from_chars(buf, buf + len, *out);
        return r.ec == std::errc() && r.ptr == buf + len;
    }
    double fraction(QStringView digits) const {
        char buf[kDigitLimit + 4] = {'0', '.'};
        qsizetype len = 0;
        if (!toChars(digits, buf + 2, sizeof buf - 2, &len)) return -1.0;
        double f = 0;
        const auto r = std::from_chars(buf, buf + 2 + len, f);
        return r.ec == std::errc() && r.ptr == buf + 2 + len ? f : -1.0;
    }
};

class Matcher {
public:
    Matcher(QStringView text, bool comma)
        : s(text.utf16()), n(text.size()), mark(comma ? u',' : u'.') {}

    bool at(qsizetype i, char16_t c) const { return i < n && s[i] == c; }
    bool digit(qsizetype i) const { return i < n && s[i] >= u'0' && s[i] <= u'9'; }
    // \s without Unicode properties: the six ASCII blanks.
    bool blank(qsizetype i) const { return i < n && (s[i] == u' ' || (s[i] >= 9 && s[i] <= 13)); }
    qsizetype digitsEnd(qsizetype i) const {
        while (digit(i)) ++i;
        return i;
    }
    qsizetype blanksEnd(qsizetype i) const {
        while (blank(i)) ++i;
        return i;
    }
    bool end(qsizetype i) const { return i == n; }

    // \d+(?!\d): the look-ahead leaves only the whole run.
    template <class K>
    bool run(qsizetype i, K&& k) const {
        return digit(i) && k(digitsEnd(i));
    }
    // \d+(?!\d)\.?\d* (or with the comma): fraction digits are given back one by one.
    template <class K>
    bool number(qsizetype i, K&& k) const {
        if (!digit(i)) return false;
        const qsizetype e = digitsEnd(i);
        if (at(e, mark)) {
            for (qsizetype j = digitsEnd(e + 1); j > e; --j) {
                if (k(j)) return true;
            }
        }
        return k(e);
    }
    template <class K>
    bool optional(qsizetype i, char16_t c, K&& k) const {
        return (at(i, c) && k(i + 1)) || k(i);
    }
    template <class K>
    bool minuteMark(qsizetype i, K&& k) const {
        return ((at(i, u'`') || at(i, u'\'')) && k(i + 1)) || k(i);
    }
    template <class K>
    bool secondMark(qsizetype i, K&& k) const {
        return (at(i, u'"') && k(i + 1)) || (at(i, u'\'') && at(i + 1, u'\'') && k(i + 2)) || k(i);
    }
    template <class K>
    bool separator(qsizetype i, K&& k) const {
        return ((at(i, u',') || at(i, u'/')) && k(i + 1)) || k(i);
    }

    // The value alternation: DF, then DMF, then DMSF.
    template <class K>
    bool angle(qsizetype i, K&& k) const {
        if (!digit(i)) return false;
        if (number(i, [&](qsizetype j) { return optional(j, u'\u00b0', k); })) return true;
        const auto degrees = [&](auto&& rest) {
            return run(i, [&](qsizetype j) {
                return optional(j, u'\u00b0', [&](qsizetype j2) { return rest(blanksEnd(j2)); });
            });
        };
        if (degrees([&](qsizetype j) {
                return number(j, [&](qsizetype j2) { return minuteMark(j2, k); });
            }))
            return true;
        return degrees([&](qsizetype j) {
            return run(j, [&](qsizetype j2) {
                return minuteMark(j2, [&](qsizetype j3) {
                    return number(blanksEnd(j3), [&](qsizetype j4) { return secondMark(j4, k); });
                });
            });
        });
    }
    template <class K>
    bool group(qsizetype i, Span& c, K&& k) const {
        return angle(i, [&](qsizetype e) {
            c = {i, e};
            return k(e);
        });
    }
    template <class K>
    bool letter(qsizetype i, const char* set, Span& c, K&& k) const {
        if (i >= n || s[i] > 0x7f || s[i] == 0 || !std::strchr(set, static_cast<char>(s[i]))) return false;
        c = {i, i + 1};
        return k(i + 1);
    }
    template <class K>
    bool sign(qsizetype i, Span& c, K&& k) const {
        if (at(i, u'-') || at(i, u'+')) {
            c = {i, i + 1};
            if (k(i + 1)) return true;
        }
        c = {};
        return k(i);
    }

    const char16_t* s;
    qsizetype n;
    char16_t mark;
};

inline constexpr char kAnyLetter[] = "NSEWnsew";
inline constexpr char kNorthSouth[] = "NSns";
inline constexpr char kEastWest[] = "EWew";

// The six pair forms in slot order: DA, DB, SB with a point, then with a comma. Fills
// c[1..4] as the pattern's groups 1 to 4 would be.
inline bool matchPair(QStringView text, int slot, Span* c) {
    const bool comma = slot >= 3;
    const Matcher m(text, comma);
    const auto atEnd = [&](qsizetype e) { return m.end(e); };
    // \s*[,/]?\s* between the halves.
    const auto between = [&](qsizetype i, auto&& k) {
        return m.separator(m.blanksEnd(i), [&](qsizetype j) { return k(m.blanksEnd(j)); });
    };
    switch (slot % 3) {
    case 0:  // value letter [sep] value letter
        return m.group(0, c[1], [&](qsizetype i) {
            return m.letter(m.blanksEnd(i), kAnyLetter, c[2], [&](qsizetype j) {
                return between(j, [&](qsizetype k) {
                    return m.group(k, c[3], [&](qsizetype l) {
                        return m.letter(m.blanksEnd(l), kAnyLetter, c[4], atEnd);
                    });
                });
            });
        });
    case 1:  // letter value [sep] letter value
        return m.letter(0, kAnyLetter, c[1], [&](qsizetype i) {
            return m.group(m.blanksEnd(i), c[2], [&](qsizetype j) {
                return between(j, [&](qsizetype k) {
                    return m.letter(k, kAnyLetter, c[3], [&](qsizetype l) {
                        return m.group(m.blanksEnd(l), c[4], atEnd);
                    });
                });
            });
        });
    default:  // [sign] value [sep] [sign] value; no separator with a decimal comma
        return m.sign(0, c[1], [&](qsizetype i) {
            return m.group(m.blanksEnd(i), c[2], [&](qsizetype j) {
                const auto second = [&](qsizetype k) {
                    return m.sign(k, c[3], [&](qsizetype l) { return m.group(m.blanksEnd(l), c[4], atEnd); });
                };
                return comma ? second(m.blanksEnd(j)) : between(j, second);
            });
        });
    }
}

// The three single forms of a latitude (`letters` "NSns") or a longitude ("EWew"): DA,
// DB, SB. Fills c[1..2].
inline bool matchSingle(QStringView text, int slot, const char* letters, Span* c) {
    const Matcher m(text, false);
    const auto atEnd = [&](qsizetype e) { return m.end(e); };
    switch (slot) {
    case 0:
        return m.group(0, c[1], [&](qsizetype i) { return m.letter(m.blanksEnd(i), letters, c[2], atEnd); });
    case 1:
        return m.letter(0, letters, c[1], [&](qsizetype i) { return m.group(m.blanksEnd(i), c[2], atEnd); });
    default:
        return m.sign(0, c[1], [&](qsizetype i) { return m.group(m.blanksEnd(i), c[2], atEnd); });
    }
}

// One angle, the six value forms in the order ParseFrom tries them. The value forms admit
// one way only to cover a whole text, so each is a straight walk.
inline Scan scanValue(QStringView text, double* value) {
    if (text.size() > kScanLimit) return Scan::Undecided;
    const Matcher m(text, false);
    const FastReader reader;
    // Degrees, the optional degree sign and blanks: the common start of DMF and DMSF.
    if (!m.digit(0)) return Scan::Refused;
    const qsizetype d1 = m.digitsEnd(0);
    if (d1 > kDigitLimit) return Scan::Undecided;
    const qsizetype afterDeg = m.at(d1, u'\u00b0') ? d1 + 1 : d1;
    const qsizetype m0 = m.blanksEnd(afterDeg);
    const QStringView deg = text.left(d1);
    // A run of digits with an optional point and fraction; *e is where it ends.
    const auto pointNumber = [&](qsizetype b, qsizetype* e) {
        if (!m.digit(b)) return false;
        qsizetype j = m.digitsEnd(b);
        if (m.at(j, u'.')) j = m.digitsEnd(j + 1);
        *e = j;
        return true;
    };
    const auto commaNumber = [&](qsizetype b, qsizetype* comma, qsizetype* e) {
        if (!m.digit(b)) return false;
        *comma = m.digitsEnd(b);
        if (!m.at(*comma, u',') || !m.digit(*comma + 1)) return false;
        *e = m.digitsEnd(*comma + 1);
        return true;
    };
    const auto secondMarkEnd = [&](qsizetype j) {
        if (m.at(j, u'"')) return j + 1;
        if (m.at(j, u'\'') && m.at(j + 1, u'\'')) return j + 2;
        return j;
    };
    const auto minuteMarkEnd = [&](qsizetype j) { return m.at(j, u'`') || m.at(j, u'\'') ? j + 1 : j; };

    enum { DMSF, DMF, DF };
    // The first form that covers the text and whose numbers pass wins, as in ParseFrom.
    // c[1..3] are the form's numbers, c[0] the digits after a decimal comma.
    for (int comma = 0; comma < 2; ++comma) {
        for (int form = DMSF; form <= DF; ++form) {
            QStringView c[4];
            qsizetype b = 0;
            QStringView* last = &c[1];
            if (form != DF) {
                c[1] = deg;
                b = m0;
                last = &c[2];
                if (form == DMSF) {
                    if (!m.digit(b)) continue;
                    const qsizetype me = m.digitsEnd(b);
                    c[2] = text.mid(b, me - b);
                    b = m.blanksEnd(minuteMarkEnd(me));
                    last = &c[3];
                }
            }
            qsizetype e = 0;
            if (!comma) {
                if (!pointNumber(b, &e)) continue;
                *last = text.mid(b, e - b);
            } else {
                qsizetype k = 0;
                if (!commaNumber(b, &k, &e)) continue;
                *last = text.mid(b, k - b);
                c[0] = text.mid(k + 1, e - k - 1);
            }
            if (form == DF) e = m.at(e, u'\u00b0') ? e + 1 : e;
            else e = form == DMSF ? secondMarkEnd(e) : minuteMarkEnd(e);
            if (!m.end(e)) continue;
            for (const QStringView& part : c) {
                if (part.size() > kDigitLimit) return Scan::Undecided;
            }
            bool ok = false;
            if (form == DF) ok = evaluateDF(reader, c[1], c[0], comma, value);
            else if (form == DMF) ok = evaluateDMF(reader, c[1], c[2], c[0], comma, value);
            else ok = evaluateDMSF(reader, c[1], c[2], c[3], c[0], comma, value);
            if (ok) return Scan::Accepted;
        }
    }
    return Scan::Refused;
}

}  // namespace mirel::coords
