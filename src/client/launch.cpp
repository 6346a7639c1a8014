#include "client/launch.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "base/platform.h"
#include "base/utf8.h"
#include "client/search_path.h"
#include "client/shell_integration.h"
#include "client/trouble.h"

extern char** environ;

namespace velotide::client {

namespace {

// The service's limits on a launch description.
constexpr std::size_t maximumText = 65536;
constexpr std::size_t maximumArguments = 256;
constexpr std::size_t maximumEnvironment = 512;
constexpr std::size_t maximumDirectory = 1023;

constexpr mode_t serviceMask = 0077;

// Says which terminal or multiplexer one sits at, or how large it is: wrong in a session, which lives longer
// and is seen from elsewhere.
constexpr std::array outerTerminalVariables = {
    "COLUMNS",
    "LINES",
    "TERMCAP",
    "TERM_PROGRAM",
    "TERM_PROGRAM_VERSION",
    "TERM_SESSION_ID",
    "TMUX",
    "TMUX_PANE",
    "STY",
    "WINDOW",
    "WINDOWID",
    "VTE_VERSION",
    "SSH_TTY",
    "KITTY_WINDOW_ID",
    "GPG_TTY",
    "_",
    "VELOTIDE_SESSION",
    "VELOTIDE_OUTER_SESSIONS",
};

mode_t ownMask() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}

std::string ownShell() {
  const char* shell = std::getenv("SHELL");
  if (shell && *shell == '/' && ::access(shell, X_OK) == 0) return shell;
  const passwd* entry = ::getpwuid(::getuid());
  if (entry && entry->pw_shell && ::access(entry->pw_shell, X_OK) == 0) return entry->pw_shell;
  return "/bin/sh";
}

std::string directoryOf(const LaunchWish& wish) {
  char resolved[PATH_MAX];
  const bool isKnown = wish.directory.empty() ? ::getcwd(resolved, sizeof resolved) != nullptr
                                              : ::realpath(wish.directory.c_str(), resolved) != nullptr;
  struct stat status {};
  if (!isKnown || ::stat(resolved, &status) != 0 || !S_ISDIR(status.st_mode))
    throw Trouble(
        (wish.directory.empty() ? "The current directory is gone." : wish.directory + " is no directory.") +
        std::string(" Name one with --directory."));
  return resolved;
}

std::string outerSessions() {
  std::string text;
  for (const Uuid& session : surroundingSessions()) text += (text.empty() ? "" : ":") + session.text();
  return text;
}

std::map<std::string, std::string> environmentFor(const LaunchWish& wish) {
  std::map<std::string, std::string> environment;
  for (char** entry = environ; *entry; ++entry) {
    const std::string_view text = *entry;
    const std::size_t equals = text.find('=');
    // What is no UTF-8 cannot travel in a frame.
    if (equals == 0 || equals == std::string_view::npos || !isValidUtf8(bytesOf(text))) continue;
    environment.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  for (const char* name : outerTerminalVariables) environment.erase(name);
  environment.emplace("TERM", "xterm-256color");
  environment["VELOTIDE_ROOT"] = wish.root;
  environment["VELOTIDE_SESSION"] = wish.sessionID.text();
  if (const std::string outer = outerSessions(); !outer.empty())
    environment["VELOTIDE_OUTER_SESSIONS"] = outer;
  return environment;
}

struct Program {
  std::string path;
  std::vector<std::string> words;
  bool isLogin = false;
};

Program programOf(const LaunchWish& wish) {
  if (wish.command.empty()) {
    const std::string shell = ownShell();
    return {shell, {wish.isLogin ? "-" + shell.substr(shell.rfind('/') + 1) : shell}, wish.isLogin};
  }
  const FoundProgram found = findProgram(wish.command.front());
  if (found.path.empty())
    throw Trouble(wish.command.front() + (found.isForbidden ? " cannot be executed. Check its permissions."
                                                            : " was not found. Check its name and PATH."),
                  found.isForbidden ? ExitStatus::cannotExecute : ExitStatus::notFound);
  Program program{found.path, wish.command, false};
  // Found from here, though started elsewhere.
  if (program.words.front().find('/') != std::string::npos) program.words.front() = found.path;
  return program;
}

void loadShellIntegration(Program& program, std::map<std::string, std::string>& environment,
                          const Notices& notices) {
  ShellStart start{program.path, program.words, environment};
  if (!takesShellIntegration(start)) return;
  const std::string directory = shellIntegrationDirectory(platform::executablePath());
  if (directory.empty() || !isValidUtf8(bytesOf(directory)))
    return notices.note(
        "The scripts of the shell integration were not found: commands will not be tracked. Install them, or "
        "name their directory with VELOTIDE_SHELL_INTEGRATION.");
  start = withShellIntegration(std::move(start), directory,
                               platform::hasOldBash ? SystemBash::old : SystemBash::current);
  program.words = std::move(start.words);
  environment = std::move(start.environment);
}

void startDirectly(TerminalRuntimeLaunch& launch, const Program& program) {
  launch.executable = program.path;
  launch.executableName = program.words.front();
  launch.arguments.assign(program.words.begin() + 1, program.words.end());
}

std::string_view setUp(LaunchWish::Streams streams) {
  switch (streams) {
    case LaunchWish::Streams::terminal:
      return "";
    case LaunchWish::Streams::plain:
      return "stty -echo -opost -ixon; ";
    case LaunchWish::Streams::plainStoppable:
      return "stty -echo -opost ixon -ixany; ";
  }
  return "";
}

// The wrapping shell knows the program by the name that was given, so that it finds it as its argument zero.
// A login shell's argument zero is no path; only some shells can pass one.
void startThroughShell(TerminalRuntimeLaunch& launch, const Program& program, LaunchWish::Streams streams) {
  char prelude[64];
  std::snprintf(prelude, sizeof prelude, "umask %04o; ", static_cast<unsigned>(ownMask()));
  std::string script = prelude;
  script += setUp(streams);
  const bool passesName = program.isLogin && ::access("/bin/bash", X_OK) == 0;
  launch.executable = passesName ? "/bin/bash" : "/bin/sh";
  if (passesName) {
    // -p: the person's start-up files are for the shell that follows.
    launch.arguments = {"-p", "-c", script + "exec -a \"$0\" \"$@\"", program.words.front(), program.path};
  } else {
    launch.arguments = {"-c", script + "exec \"$@\"", "sh",
                        program.isLogin ? program.path : program.words.front()};
  }
  launch.arguments.insert(launch.arguments.end(), program.words.begin() + 1, program.words.end());
  if (program.isLogin && !passesName) launch.arguments.emplace_back("-l");
}

void check(const TerminalRuntimeLaunch& launch) {
  std::size_t size =
      launch.executable.size() + launch.directory.size() + launch.executableName.value_or("").size();
  for (const std::string& argument : launch.arguments) {
    size += argument.size();
    if (!isValidUtf8(bytesOf(argument)))
      throw Trouble("An argument is no UTF-8 text, which sessions need. Rename the file, say.");
  }
  for (const auto& [name, value] : launch.environment) size += name.size() + 1 + value.size();
  if (!isValidUtf8(bytesOf(launch.directory)) || launch.directory.size() > maximumDirectory)
    throw Trouble("The directory's path is no UTF-8 text or longer than 1023 bytes. Start from another one.");
  if (launch.arguments.size() > maximumArguments)
    throw Trouble("The command line has more words than a session takes (about 250). Put it into a script.");
  if (launch.environment.size() > maximumEnvironment || size > maximumText)
    throw Trouble("Command line and environment are too large (" + std::to_string(size) + " bytes in " +
                  std::to_string(launch.environment.size()) +
                  " variables; at most 65536 in 512). Leave variables out with `env -u NAME velotide …`.");
}

}  // namespace

std::vector<Uuid> surroundingSessions() {
  std::vector<Uuid> sessions;
  for (const char* name : {"VELOTIDE_SESSION", "VELOTIDE_OUTER_SESSIONS"}) {
    const char* value = std::getenv(name);
    std::string_view rest = value ? value : "";
    while (!rest.empty()) {
      const std::size_t colon = std::min(rest.find(':'), rest.size());
      if (const std::optional<Uuid> session = Uuid::parse(rest.substr(0, colon)))
        sessions.push_back(*session);
      rest.remove_prefix(std::min(colon + 1, rest.size()));
    }
  }
  return sessions;
}

TerminalRuntimeLaunch composeLaunch(const LaunchWish& wish, const Notices& notices) {
  TerminalRuntimeLaunch launch;
  launch.directory = directoryOf(wish);
  launch.environment = environmentFor(wish);
  if (!wish.directory.empty()) launch.environment["PWD"] = launch.directory;
  launch.columns = wish.columns;
  launch.rows = wish.rows;
  Program program = programOf(wish);
  if (wish.loadsShellIntegration) loadShellIntegration(program, launch.environment, notices);
  if (ownMask() == serviceMask && wish.streams == LaunchWish::Streams::terminal)
    startDirectly(launch, program);
  else
    startThroughShell(launch, program, wish.streams);
  check(launch);
  return launch;
}

}  // namespace velotide::client
