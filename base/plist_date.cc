#include "base/plist_date.h"

#include <cmath>

namespace velmar {

namespace {

constexpr int64_t kSecondsPerDay = 86400;

// Floor division and its remainder, for negative numerators too.
constexpr int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }
constexpr int64_t floorMod(int64_t a, int64_t b) { return a - floorDiv(a, b) * b; }

// Days since 1970-01-01 of a date whose month is 1 to 12 and day 1 to 31;
// the year may be any. Counted in 400-year eras, each 146,097 days long,
// with years starting in March so that the leap day ends them.
constexpr int64_t daysFromCivil(int64_t year, int64_t month, int64_t day) {
  year -= month <= 2;
  const int64_t era = floorDiv(year, 400);
  const int64_t yearOfEra = year - era * 400;
  const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

constexpr int64_t kReferenceDay = daysFromCivil(2001, 1, 1);

static_assert((daysFromCivil(1, 1, 1) - kReferenceDay) * kSecondsPerDay == kEarliestPropertyListDate);
static_assert((daysFromCivil(10000, 1, 1) - kReferenceDay) * kSecondsPerDay == kPropertyListDateLimit);
static_assert(kReferenceDay == 11323);

}  // namespace

double clampToPropertyListDate(double seconds) {
  if (std::isnan(seconds)) return 0;
  if (seconds < kEarliestPropertyListDate) return kEarliestPropertyListDate;
  if (seconds >= kPropertyListDateLimit) return kPropertyListDateLimit - 1;
  return seconds;
}

CivilTime civilTimeOf(int64_t seconds) {
  const int64_t days = floorDiv(seconds, kSecondsPerDay) + kReferenceDay + 719468;
  const int64_t secondOfDay = floorMod(seconds, kSecondsPerDay);
  const int64_t era = floorDiv(days, 146097);
  const int64_t dayOfEra = days - era * 146097;
  const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;  // 0 is March
  CivilTime t;
  t.day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
  t.month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
  t.year = yearOfEra + era * 400 + (t.month <= 2);
  t.hour = static_cast<int>(secondOfDay / 3600);
  t.minute = static_cast<int>(secondOfDay / 60 % 60);
  t.second = static_cast<int>(secondOfDay % 60);
  return t;
}

int64_t secondsOfCivilTime(int64_t year, int64_t month, int64_t day, int64_t hour, int64_t minute,
                           int64_t second) {
  year += floorDiv(month - 1, 12);
  month = floorMod(month - 1, 12) + 1;
  const int64_t days = daysFromCivil(year, month, 1) - kReferenceDay + (day - 1);
  return days * kSecondsPerDay + hour * 3600 + minute * 60 + second;
}

}  // namespace velmar
