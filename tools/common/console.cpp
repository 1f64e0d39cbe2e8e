// The console of the host programs; see the header.
#include "tools/common/console.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tools {
namespace {

constexpr char kEraseLine[] = "\r\x1b[K";

bool CanMoveCursor() {
  const char* kind = std::getenv("TERM");
  return ::isatty(STDERR_FILENO) == 1 && kind != nullptr && std::strcmp(kind, "dumb") != 0;
}

void WriteAll(const std::string& text) {
  const char* data = text.data();
  size_t left = text.size();
  while (left > 0) {
    const ssize_t written = ::write(STDERR_FILENO, data, left);
    if (written <= 0) {
      return;  // nobody listens; a program's work does not depend on being heard
    }
    data += written;
    left -= static_cast<size_t>(written);
  }
}

}  // namespace

Console::Console() : terminal_(CanMoveCursor()) {}

int Console::Width() const {
  winsize size{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    return size.ws_col;
  }
  return 80;
}

void Console::Line(std::string_view text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string out = status_.empty() ? "" : kEraseLine;
  WriteAll(out + EscapeControls(text) + "\n" + status_);
}

void Console::Status(const std::string& text) {
  if (!terminal_) {
    return;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  status_ = text;
  WriteAll(kEraseLine + status_);
}

void Console::EndStatus() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!status_.empty()) {
    status_.clear();
    WriteAll("\n");
  }
}

Console& TheConsole() {
  static Console* console = new Console;  // outlives the log's thread at exit
  return *console;
}

std::string EscapeControls(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // C2 80 to C2 9F are the same control characters again, in UTF-8.
    const bool second_set = byte == 0xC2 && i + 1 < text.size() &&
                            (static_cast<unsigned char>(text[i + 1]) & 0xE0) == 0x80;
    if (byte == '\n') {
      out += "\\n";
    } else if (byte == '\t') {
      out += "\\t";
    } else if (byte < 0x20 || byte == 0x7F || second_set) {
      char code[8];
      const unsigned shown = second_set ? static_cast<unsigned char>(text[++i]) : byte;
      std::snprintf(code, sizeof(code), "\\x%02x", shown);
      out += code;
    } else {
      out += static_cast<char>(byte);
    }
  }
  return out;
}

}  // namespace tools
