// Dates in RFC 3339 form, in the proleptic Gregorian calendar.
#pragma once

#include <local/platform/DateFormatter.h>

namespace kvl::formatting {

enum class SecondFraction { none, nanoseconds };

// The one formatter of each form, which lasts as long as the process.
//
// It writes the date in UTC with "Z". The fraction is cut off, or written with nine digits: the
// fewest that read back as the same date, filled up with zeros. Dates within four months of 2001
// may be finer than a nanosecond and are cut to whole ones. Both cut toward the earlier, before
// 2001 too, so that the two forms of one date show the same second. The text is empty for a date
// that has no RFC 3339 form: one outside the years 0000 to 9999, not a number.
//
// It reads `yyyy-MM-ddTHH:mm:ss`, a fraction of one to nine digits exactly when it writes one, and
// an offset (`Z`, `+hh`, `+hhmm`, `+hh:mm`, or with `-`; up to 23:59), from the text's first byte
// to its last. The date is the exact instant rounded once, to the nearest that a date can hold.
// There is none for other texts and for days and times that do not exist. Second 60 is one of them:
// dates do not count leap seconds, so it would be read as a different instant.
[[nodiscard]] const DateFormatter& rfc3339Formatter(SecondFraction fraction);

}  // namespace kvl::formatting
