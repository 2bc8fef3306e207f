// tiffgate: the module's command-line shell over the embedded host. It runs
// statements from a script, the command line, standard input or an
// interactive prompt, and summarises TIFF files with "tiffgate info".

#include "host/embedded/session.h"
#include "shell/info.h"
#include "shell/interpreter.h"
#include "shell/printer.h"

#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>  // isatty

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using tiffgate::shell::Interpreter;

constexpr int kFailed = 1;
constexpr int kUsageError = 2;

constexpr const char* kHelp = R"(usage: tiffgate [--keep-going] [--full] [SCRIPT | -e STATEMENTS]
       tiffgate info FILE...
       tiffgate --help | --version

Runs statements against the tiffgate module through its embedded host: at an
interactive prompt when standard input is a terminal, otherwise from SCRIPT,
from STATEMENTS, or from standard input ('-' as SCRIPT reads it too).

  -e STATEMENTS   run these statements (may be given more than once)
  --keep-going    after a statement fails, report it and go on
  --full          print every element of large arrays instead of a digest
  info FILE...    summarise every directory of each TIFF file

Statements, one per line or separated by ',' or ';' (';' prints nothing):
  f = open('a.tif', 'r')            any of the 25 commands, called by name
  w = getField(f, 256)
  [y, cb, cr] = readEncodedStrip(f, 0)
  gateway('WORD', args...)          sends any word at all
  x = uint8([1 2 3; 4 5 6])         values, ranges a:b:c, 'text', {cells}
Builtins: double single int8 uint8 int16 uint16 int32 uint32 uint64 logical
  zeros ones reshape cat size class numel, x(i, j), c{i}, s.Field.
Exit status: 0 success, 1 a command failed, 2 a syntax or usage error.
)";

int usage_error(const std::string& message) {
  tiffgate::shell::print_diagnostic(std::cerr, "error", "tiffgate:usage", message + " (see tiffgate --help)");
  return kUsageError;
}

int run_text(const std::string& text, Interpreter::Options options) {
  tiffgate::shell::Program program;
  try {
    program = tiffgate::shell::parse(text);
  } catch (const tiffgate::shell::SyntaxError& e) {
    tiffgate::shell::print_diagnostic(std::cerr, "error", "tiffgate:syntaxError", e.describe());
    return kUsageError;
  }
  Interpreter interpreter(std::cout, std::cerr, options);
  const bool ok = interpreter.run(program);
  interpreter.leave();
  return ok ? 0 : kFailed;
}

int run_interactive(Interpreter::Options options) {
  options.keep_going = true;  // a mistake at the prompt ends nothing
  Interpreter interpreter(std::cout, std::cerr, options);
  int status = 0;
  using_history();
  while (char* raw = readline("tiffgate> ")) {
    const std::unique_ptr<char, void (*)(void*)> line(raw, std::free);
    if (std::string(raw).find_first_not_of(" \t") != std::string::npos) add_history(raw);
    try {
      if (!interpreter.run(tiffgate::shell::parse(raw))) status = std::max(status, kFailed);
    } catch (const tiffgate::shell::SyntaxError& e) {
      tiffgate::shell::print_diagnostic(std::cerr, "error", "tiffgate:syntaxError", e.describe());
      status = kUsageError;
    }
    std::cout.flush();
  }
  std::cout << '\n';
  interpreter.leave();
  return status;
}

int print_version() {
  std::cout << "tiffgate " << TIFFGATE_VERSION << '\n';
  const auto version = tiffgate::embedded::call("getVersion");
  if (version.ok()) std::cout << version.out().utf8() << '\n';
  return version.ok() ? 0 : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  Interpreter::Options options;
  std::optional<std::string> statements;
  std::optional<std::string> script;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--help") {
      std::cout << kHelp;
      return 0;
    }
    if (a == "--version") return print_version();
    if (a == "--keep-going") {
      options.keep_going = true;
    } else if (a == "--full") {
      options.full = true;
    } else if (a == "-e") {
      if (i + 1 == args.size()) return usage_error("-e needs statements");
      statements = statements ? *statements + "\n" + args[++i] : args[++i];
    } else if (a == "info" && !script && !statements) {
      const std::vector<std::string> files(args.begin() + static_cast<std::ptrdiff_t>(i) + 1, args.end());
      if (files.empty()) return usage_error("info needs one file at least");
      const int status = tiffgate::shell::run_info(files, std::cout, std::cerr);
      for (const auto& w : tiffgate::embedded::unload())
        tiffgate::shell::print_diagnostic(std::cerr, "warning", w.identifier, w.message);
      return status;
    } else if (a.size() > 1 && a[0] == '-') {
      return usage_error("unknown option '" + a + "'");
    } else if (script || statements) {
      return usage_error("give one script, or statements with -e, not both or more");
    } else {
      script = a;
    }
  }
  if (statements) return run_text(*statements, options);
  if (script && *script != "-") {
    std::ifstream file(*script, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    std::error_code ec;
    if (!file || std::filesystem::is_directory(*script, ec)) {
      tiffgate::shell::print_diagnostic(std::cerr, "error", "tiffgate:cannotReadScript",
                                        "cannot read the script '" + *script + "'");
      return kUsageError;
    }
    return run_text(text.str(), options);
  }
  if (!script && isatty(STDIN_FILENO)) return run_interactive(options);
  std::ostringstream text;
  text << std::cin.rdbuf();
  return run_text(text.str(), options);
}
