// Dates in property lists: seconds since 2001-01-01T00:00:00Z, the
// reference date, in the proleptic Gregorian calendar (UTC, no leap
// seconds).
//
// The XML form writes a date as "YYYY-MM-DDTHH:MM:SSZ", so a date must fall
// in the years 1 to 9999 for both forms to hold it: the readers refuse any
// other date (and NaN), the writers bring one made in code into that range.

#ifndef VELMAR_BASE_PLIST_DATE_H_
#define VELMAR_BASE_PLIST_DATE_H_

#include <cstdint>

namespace velmar {

// 0001-01-01T00:00:00Z, and 10000-01-01T00:00:00Z, the first instant past
// the range.
constexpr double kEarliestPropertyListDate = -63113904000.0;
constexpr double kPropertyListDateLimit = 252423993600.0;

inline bool isPropertyListDate(double seconds) {
  return seconds >= kEarliestPropertyListDate && seconds < kPropertyListDateLimit;
}

// `seconds` brought into the range: NaN is the reference date, dates
// before or past the range its first or last whole second.
double clampToPropertyListDate(double seconds);

struct CivilTime {
  int64_t year = 2001;
  int month = 1, day = 1, hour = 0, minute = 0, second = 0;
};

// The calendar time of a whole number of seconds since the reference date.
CivilTime civilTimeOf(int64_t seconds);

// Seconds since the reference date of a calendar time whose fields may lie
// outside their ranges and are carried as timegm carries them (month 13 is
// January of the next year, day 0 the last day of the previous month).
// Fields must stay within ±10^9, where no sum overflows.
int64_t secondsOfCivilTime(int64_t year, int64_t month, int64_t day, int64_t hour, int64_t minute,
                           int64_t second);

}  // namespace velmar

#endif  // VELMAR_BASE_PLIST_DATE_H_
