// Library-global state that the rest of the library reads: the locale
// codes used to pick display texts, and the resource roots.
#pragma once

namespace ONDREL2 {

// Two-character codes with terminators; empty until ondrel_init.
const char* LocaleLanguage();
const char* LocaleCountry();

}  // namespace ONDREL2
