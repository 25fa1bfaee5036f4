// The console's own texts in the session's language. The code holds them in English; the string
// table strings/<language>/zorv.txt of the installation folder maps an English text to its
// translation, and a text without an entry stays English. "{0}", "{1}"... in a text stand for the
// arguments, so a translation may put them in another order.
//
// Threads: loaded once on the main thread before any text is asked for; read-only afterwards.
#pragma once

#include <initializer_list>
#include <string>

namespace zorv {

// Loads the table of zorvhost::language() from `installFolder`; a missing table leaves English.
void loadTexts(const std::string& installFolder);

std::string tr(const std::string& english, std::initializer_list<std::string> args = {});

}  // namespace zorv
