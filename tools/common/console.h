// Everything that a host program says to a person, on standard error: whole lines, and on a terminal
// one status line below them that is redrawn in place. Callable from any thread; a line never tears
// another one. Standard output stays free for data.
#ifndef TOOLS_COMMON_CONSOLE_H
#define TOOLS_COMMON_CONSOLE_H

#include <mutex>
#include <string>
#include <string_view>

namespace tools {

class Console {
 public:
  Console();
  // True where a status line makes sense: a terminal that can move its cursor.
  bool terminal() const { return terminal_; }
  // Columns of the terminal, 80 where it does not say.
  int Width() const;

  // Writes one line above the status line. Control characters come out as escapes, so that a name
  // chosen by someone else can neither forge a line nor steer the terminal.
  void Line(std::string_view text);
  // Replaces the status line; does nothing without a terminal. `text` may hold colour sequences.
  void Status(const std::string& text);
  // Leaves the status line standing as an ordinary line.
  void EndStatus();

 private:
  const bool terminal_;
  std::mutex mutex_;
  std::string status_;
};

// The one console of a program.
Console& TheConsole();

// Text with control characters (line feeds, escape sequences) written as \n, \t and \x1b.
std::string EscapeControls(std::string_view text);

}  // namespace tools

#endif
