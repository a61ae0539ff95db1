// The user's formats from the C library's locale data for LC_TIME, read
// through a locale object of its own so that the process's global locale is
// neither needed nor changed.

#include <langinfo.h>
#include <locale.h>

#include "agent/user_time_formats.h"

namespace halyard::agent {

UserTimeFormats readUserTimeFormats() {
  locale_t userLocale = newlocale(LC_TIME_MASK, "", static_cast<locale_t>(0));
  // An unknown locale name in the environment falls back to the C locale's formats.
  if (userLocale == static_cast<locale_t>(0)) userLocale = newlocale(LC_TIME_MASK, "C", static_cast<locale_t>(0));
  UserTimeFormats formats{nl_langinfo_l(T_FMT, userLocale), nl_langinfo_l(D_FMT, userLocale)};
  freelocale(userLocale);
  return formats;
}

}  // namespace halyard::agent
