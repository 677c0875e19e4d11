// Text forms of DateTime (the XML Schema gYear, gYearMonth, date and dateTime), the stream
// operators through which settings and text streams carry a DateTime or a QDateTime, and
// the double conversions that generic setting code calls.
//
// Accepted text: 2006, 2006-07, 2006-07-04, 2006-07-04T10:20:30 with an optional
// fraction of the second, and a zone of Z, +hh:mm or -h:mm. Blanks anywhere are skipped.
// The length rules are kept as they always were: a year alone needs 4 characters but
// only 2 before "-"; a zone's hours, sign included, take exactly 2 characters, so -05:00
// is refused while -5:30 reads as -5 h -30 min; anything after Z is ignored. Numbers are
// read like "%d" and "%lf" of scanf in the C locale, whatever the application's: "12ab"
// in a field reads as 12, "30.9" as 30 seconds. Fields are not range-checked, and fields
// the text does not reach keep their old values.
//
// Parsing and toString() keep their working text per call: both are reentrant and may run
// on several threads at once (on different values).
#pragma once

#include <QDateTime>
#include <QString>
#include <QTextStream>

#include "base/datetime/datetime.h"
#include "base/foundation/utf8ostream.h"
#include "base/mirel_export.h"

namespace mirel {

// Parses `text` into `value`. A null QString changes nothing and is no error. Anything
// else that is not an accepted form throws a QString: "Could not parse time value " and
// the whole text; fields assigned before the failure keep their new values.
MIREL_EXPORT void operator>>(const QString& text, DateTime& value);
// Parses the rest of `stream` (everything left to read); throws as above.
MIREL_EXPORT QTextStream& operator>>(QTextStream& stream, DateTime& value);
// Writes value.toString().
MIREL_EXPORT QTextStream& operator<<(QTextStream& stream, const DateTime& value);
MIREL_EXPORT Utf8OStream& operator<<(Utf8OStream& stream, const DateTime& value);

// Reads the rest of `stream` as Qt::TextDate; an unreadable text gives an invalid QDateTime.
MIREL_EXPORT QTextStream& operator>>(QTextStream& stream, QDateTime& value);
// Writes value.toString(Qt::TextDate).
MIREL_EXPORT QTextStream& operator<<(QTextStream& stream, const QDateTime& value);

// Numeric views for code generic over setting types: only a double has one.
MIREL_EXPORT double convertToDouble(double value);
MIREL_EXPORT double convertToDouble(const QString& value);     // 0.0
MIREL_EXPORT double convertToDouble(const QDateTime& value);   // 0.0
MIREL_EXPORT double convertFromDouble(double current, double value);  // value
MIREL_EXPORT void convertFromDouble(QDateTime& target, double value);  // no change
MIREL_EXPORT void convertFromDouble(QString& target, double value);    // no change

}  // namespace mirel
