#include <unistd.h>

#include <cstdlib>

#include "console/console.h"

// What ends the console when memory runs out where no command expects it
// (a std::string that cannot grow): one line and an abort, in place of the
// C++ runtime's own message, whose name demangler would take a tenth of
// the recorder's console.
namespace __gnu_cxx {
void __verbose_terminate_handler() {
  static const char kLine[] =
      "trellis-maintain: stopped: out of memory or an internal error\n";
  const ssize_t ignored = write(STDERR_FILENO, kLine, sizeof kLine - 1);
  (void)ignored;
  std::abort();
}
}  // namespace __gnu_cxx

int main(int argc, char** argv) { return tr::consoleMain(argc, argv); }
