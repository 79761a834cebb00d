#include "console/console.h"

#include <sys/select.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/output.h"
#include "base/platform.h"
#include "maintain/commands.h"
#include "maintain/startup.h"

namespace tr {
namespace {

constexpr uint32_t kLineBufferSize = 2048;

// Set when waiting on descriptor 0 finds no descriptor at all.
bool gNoInput = false;

// Text the input stream has already taken from descriptor 0 but not yet
// handed out: such lines are answered at once, without waiting for the
// descriptor to become readable again.
bool inputBuffered() {
#ifdef __GLIBC__
  return stdin->_IO_read_ptr < stdin->_IO_read_end;
#else
  return false;  // consoleMain() leaves standard input unbuffered
#endif
}

// Waits until standard input can be read; false when it never can.
bool waitForInput() {
  if (inputBuffered()) return true;
  for (;;) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(0, &readable);
    struct timeval timeout = {0, 10000};
    const int ready = select(1, &readable, nullptr, nullptr, &timeout);
    if (ready > 0 && FD_ISSET(0, &readable)) return true;
    if (ready == -1 && errno == EBADF) {
      gNoInput = true;
      return false;
    }
  }
}

bool wordIs(const tr_LineParser* words, const char* text) {
  return std::strcmp(words->argv[0], text) == 0;
}

}  // namespace

int32_t _tr_getLine(char* buf, uint32_t size) {
  if (buf == nullptr || size == 0) return 0;
  buf[0] = '\0';
  if (!waitForInput()) return 0;
  if (std::fgets(buf, static_cast<int>(size), stdin) == nullptr) {
    buf[0] = '\0';
    return 0;
  }
  const size_t length = std::strlen(buf);
  if (length == 0) return 0;
  buf[length - 1] = '\0';
  return static_cast<int32_t>(length - 1);
}

bool consoleInputEnded() {
  return gNoInput || std::feof(stdin) || std::ferror(stdin);
}

int invoke_rpc(const char* command, int32_t, int32_t) {
  if (command != nullptr) {
    const int ignored = std::system(command);
    (void)ignored;
  }
  return 0;
}

int consoleMain(int, char**) {
#ifndef __GLIBC__
  std::setvbuf(stdin, nullptr, _IONBF, 0);
#endif
  const char* noColour = std::getenv("NO_COLOR");
  setColourEnabled(noColour == nullptr || *noColour == '\0');
  loadPlatform();

  out("\033[31mHello Trellis Maintain\033[0m\n");
  _tr_maintainInit();

  char line[kLineBufferSize];
  for (;;) {
    out("\033[32mplease enter the console command:\033[0m\n");
    std::fflush(stdout);
    std::memset(line, 0, sizeof line);
    const int32_t length = _tr_getLine(line, sizeof line);
    if (length < 1 || line[0] == '\0') {
      if (consoleInputEnded()) break;
      continue;
    }
    tr_LineParser* words = _tr_lineParser(line, length);
    if (words == nullptr) continue;
    if (wordIs(words, "exit")) {
      _tr_freeLineParser(words);
      break;
    }
    if (wordIs(words, "maintain")) {
      tr_maintain(words->argc - 1, words->argv + 1);
    } else {
      out("console: command not found\n");
      out("support: \n\tmaintain xxx\n\texit\n");
    }
    _tr_freeLineParser(words);
  }
  out("\033[31mBye Trellis Maintain\033[0m\n");
  std::fflush(stdout);
  return 0;
}

}  // namespace tr
