#include "client/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <iostream>

#include "client/agent_command_line.h"
#include "client/command_words.h"
#include "client/commands.h"
#include "client/completion.h"
#include "client/help_formatter.h"
#include "client/trouble.h"
#include "client/wait_command_line.h"
#include "protocol/version.h"

namespace velotide::client {

namespace {

constexpr const char* overview =
    "Hosts terminal sessions in a service of your own: start a shell, detach, come back.\n"
    "A session is named by its ID or any beginning of it that fits no other.";

constexpr const char* overviewFooter =
    "\nExit status: 0 done (also --follow, ended by a signal), 1 failed, 2 wrong usage, 3 no service is\n"
    "running. `new`, `attach`, `restart` and `run` pass on the program's status; there 125 is a failure\n"
    "of their own, 126 a program that cannot be executed, 127 one that was not found, 128+n the end by\n"
    "signal n.\n"
    "The service is found through --root, else VELOTIDE_ROOT, else XDG_RUNTIME_DIR/velotide, else\n"
    "~/.local/state/velotide; `new` and `run` start it when none answers there. NO_COLOR is honoured.";

constexpr const char* sessionFields =
    "\nFields of a session: id, revision, pid, generation, controlEpoch, directory, running, exitStatus, "
    "columns,\n"
    "rows, outputOffset, controlOwner, nextInputSequence, agent, controlExpiresAt, outputRevision, "
    "commands,\n"
    "reminderPolicy. Dates are seconds since 2001-01-01 00:00:00 UTC; fields without a value are left out.";

constexpr const char* sessionHelp = "Session: its ID or an unambiguous beginning";

// An empty value stands for a variable that was not set, not for a choice.
std::string refuseEmpty(const std::string& value) {
  return value.empty() ? "needs a value that is not empty" : "";
}

// The command line as declared to the parser, and what to do once it is understood.
class CommandLine {
 public:
  CommandLine();

  int run(int count, char** words);

 private:
  using Action = std::function<int(Service&)>;

  CLI::App* add(const std::string& name, const std::string& description, Action action);
  void addGeneralOptions(CLI::App* command);
  void addStart();
  void addRun();
  void addList();
  void addRead();
  void addCommands();
  void addSend();
  void addSessionChanges();
  void addWatch();
  void addServiceCommands();
  void addStartOptions(CLI::App* command, bool attaches);
  void addDetachKey(CLI::App* command);
  void takeCommand(CLI::App* command);
  int fail(const Trouble& trouble) const;
  int failUsage(const CLI::ParseError& error) const;
  bool passesStatus() const;

  CLI::App app_{overview, "velotide"};
  std::string root_;
  bool isQuiet_ = false;
  Action action_;
  CommandWords words_;

  StartOptions start_;
  ReadOptions read_;
  SendOptions send_;
  CloseOptions close_;
  AgentCommandLine agents_;
  WaitCommandLine waits_;
  std::string owner_;
  std::string session_;
  std::optional<std::string> attached_;
  std::string shell_;
  std::string command_;
  bool follows_ = false;
  bool asJson_ = false;
  bool namesOnly_ = false;
  bool closesAll_ = false;
  std::int64_t columns_ = 0;
  std::int64_t rows_ = 0;
};

CommandLine::CommandLine() {
  app_.formatter(std::make_shared<HelpFormatter>());
  // The line of usage says which arguments are needed.
  for (const char* label : {"TEXT", "REQUIRED"}) app_.get_formatter()->label(label, "");
  app_.set_version_flag("--version", "velotide " + std::string(AppVersion::value));
  addGeneralOptions(&app_);
  app_.require_subcommand(1);
  addStart();
  addRun();
  addList();
  addRead();
  addCommands();
  addSend();
  addSessionChanges();
  addWatch();
  addServiceCommands();
  const auto addFamily = [this](const char* name, const char* description, Action action) {
    return add(name, description, std::move(action));
  };
  agents_.addTo(addFamily, app_);
  waits_.addTo(addFamily);
  // Last, because commands would take it over.
  app_.footer(overviewFooter);
  takeAsTyped(app_);
}

void CommandLine::addGeneralOptions(CLI::App* command) {
  command->add_option("--root", root_, "Directory of the service")
      ->type_name("DIRECTORY")
      ->check(refuseEmpty);
  command->add_flag("-q,--quiet", isQuiet_, "Say nothing but results and errors");
}

CLI::App* CommandLine::add(const std::string& name, const std::string& description, Action action) {
  CLI::App* command = app_.add_subcommand(name, description);
  command->fallthrough();
  command->final_callback([this, action = std::move(action)] { action_ = action; });
  return command;
}

void CommandLine::addDetachKey(CLI::App* command) {
  command->add_option("--detach-key", start_.detachKey, "Key that detaches, like ctrl-g, or none")
      ->type_name("KEY")
      ->capture_default_str();
}

void CommandLine::addStartOptions(CLI::App* command, bool attaches) {
  command->prefix_command();
  // Words that are no options would fall through as well, and the program's are none of the general ones.
  command->fallthrough(false);
  addGeneralOptions(command);
  command->add_option("-C,--directory", start_.directory, "Start there instead of here")
      ->type_name("DIRECTORY")
      ->check(refuseEmpty);
  command->add_flag("--no-shell-integration", start_.leavesShellAlone,
                    "Do not make bash, zsh or fish tell which commands run");
  if (!attaches) return;
  command->add_flag("-d,--detached", start_.isDetached, "Print the session's ID instead of attaching");
  command->add_flag("-l,--login", start_.isLogin, "Start the shell as a login shell");
  command->add_flag("--rm", start_.removesAtEnd, "Close the session when its program ends while attached");
  command->add_flag("--json", start_.asJson, "Print the session as JSON where its ID would be printed");
  addDetachKey(command);
}

void CommandLine::addStart() {
  CLI::App* start = add("new", "Start a session and attach to it",
                        [this](Service& service) { return startSession(service, start_); });
  start->footer(
      "\nWithout COMMAND your shell is started. Without a terminal, or with -d, the ID is printed.");
  addStartOptions(start, true);
  CLI::App* attach = add("attach", "Connect this terminal with a session", [this](Service& service) {
    return attachSession(service, attached_, start_.detachKey);
  });
  attach->add_option("SESSION", attached_, std::string(sessionHelp) + "; the only running one when left out");
  attach->footer(
      "\nWhat is held of the output is shown first. When several terminals are attached, the one that was "
      "typed in\n"
      "last answers programs' questions to their terminal.");
  addDetachKey(attach);
  CLI::App* restart =
      add("restart", "Start a program in a session whose program has ended", [this](Service& service) {
        if (start_.command.empty()) throw Trouble("Name the session to restart.", ExitStatus::usage);
        const std::string name = start_.command.front();
        start_.command.erase(start_.command.begin());
        return restartSession(service, name, start_);
      });
  restart->footer(
      "\nWithout COMMAND your shell is started, in the session's directory. The output begins anew.");
  addStartOptions(restart, true);
}

void CommandLine::addRun() {
  CLI::App* run = add("run", "Run a program in a session of its own and pass on its exit status",
                      [this](Service& service) {
                        if (start_.command.empty())
                          throw Trouble("Name the program to run.", ExitStatus::usage);
                        return runProgram(service, start_);
                      });
  addStartOptions(run, false);
  run->footer(
      "\nBetween terminals the program has this one. Otherwise standard input and output are passed on\n"
      "as they are (standard error comes with the output), but the program has a terminal all the same:\n"
      "it may colour, set in columns or start a pager. `velotide run sh -c 'ls | cat'` and PAGER=cat\n"
      "keep it from that. The session is closed at the end.");
}

void CommandLine::addList() {
  CLI::App* list = add("ls", "List sessions",
                       [this](Service& service) { return listSessions(service, asJson_, namesOnly_); });
  list->add_flag("--json", asJson_, "One session a line as JSON; [] when there is none");
  list->add_flag("--ids", namesOnly_, "IDs only");
  list->footer(sessionFields);
  CLI::App* show = add("show", "Show one session",
                       [this](Service& service) { return showSession(service, session_, asJson_); });
  show->add_option("SESSION", session_, sessionHelp)->required();
  show->add_flag("--json", asJson_, "As one line of JSON");
  show->footer(sessionFields);
}

void CommandLine::addRead() {
  CLI::App* read = add("read", "Print a session's output",
                       [this](Service& service) { return readOutput(service, read_); });
  read->add_option("SESSION", read_.session, sessionHelp)->required();
  read->add_flag("-f,--follow", read_.follows,
                 "Go on with what is printed from now on, until the session ends or a signal comes");
  read->add_option("--after", read_.after, "Begin behind this position")->type_name("GENERATION:OFFSET");
  read->add_flag("--show-cursor", read_.showsCursor,
                 "Print \"velotide: cursor POSITION\" to standard error, for --after");
  read->add_flag("--json", read_.asJson, "One piece of output a line as JSON");
  read->footer(
      "\nFields of a piece: session, data (base64), cursor (generation, offset: where it ends), missed "
      "(bytes before\n"
      "it that are no longer held). --follow ends with a line of session, cursor, ended (exited, closed or\n"
      "serviceGone) and exitStatus. Ended by a signal, it exits with 0.");
}

void CommandLine::addCommands() {
  CLI::App* commands = add("commands", "List the commands that ran in a session", [this](Service& service) {
    return listCommands(service, session_, follows_, asJson_);
  });
  commands->add_option("SESSION", session_, sessionHelp)->required();
  commands->add_flag("-f,--follow", follows_, "Go on as commands start and end, until the session ends");
  commands->add_flag("--json", asJson_, "One command a line as JSON; [] when there is none");
  commands->footer(
      "\nThe latest 8 are listed; --follow tells every later one twice, when it starts and when it ends.\n"
      "Fields of a command: id, generation, markerOffset, startedAt, endedAt, exitCode, state (running, "
      "succeeded,\n"
      "failed, superseded, completed_unknown_status). Dates are seconds since 2001-01-01 00:00:00 UTC; "
      "fields "
      "without\n"
      "a value are left out.");
  CLI::App* output = add("output", "Print what one command of a session printed", [this](Service& service) {
    return printCommandOutput(service, session_, command_, follows_);
  });
  output->add_option("SESSION", session_, sessionHelp)->required();
  output->add_option("COMMAND", command_, "The command's ID, an unambiguous beginning of it, or last")
      ->required();
  output->add_flag("-f,--follow", follows_, "Of a command that is running: go on to its end");
  output->footer(
      "\nPrints exactly the bytes, as long as the session holds all of them (the newest MiB of its output).");
}

void CommandLine::addSend() {
  CLI::App* send = add("send", "Type into a session", [this](Service& service) {
    if (!owner_.empty()) send_.owner = owner_;
    return sendInput(service, send_);
  });
  send->add_option("SESSION", send_.session, sessionHelp)->required();
  send->add_option("TEXT", send_.text, "Text to type; standard input when neither text nor keys are given");
  send->add_flag("-e,--enter", send_.pressesEnter, "Press Enter behind it");
  send->add_option("-k,--key", send_.keys, "Press a key behind the text (again for more)")
      ->type_name("KEY")
      ->allow_extra_args(false);
  send->add_option("--as", owner_, "Type as this agent: take control, and release it unless held before")
      ->type_name("OWNER")
      ->check(refuseEmpty);
  send->footer(
      "\nKeys: ctrl-c and alt-x and the like, enter, tab, shift-tab, escape, space, backspace, delete,\n"
      "insert, up, down, left, right, home, end, pageup, pagedown, f1 to f12, or one character. They are\n"
      "pressed once the program took the text.");
}

void CommandLine::addSessionChanges() {
  CLI::App* resize = add("resize", "Change a session's size", [this](Service& service) {
    return resizeSession(service, session_, columns_, rows_);
  });
  resize->add_option("SESSION", session_, sessionHelp)->required();
  CLI::Option* columns = resize->add_option("COLUMNS", columns_, "1 to 1000; this terminal's when left out");
  CLI::Option* rows = resize->add_option("ROWS", rows_, "1 to 1000");
  columns->check(CLI::Range(1, 1000))->needs(rows);
  rows->check(CLI::Range(1, 1000));
  CLI::App* close = add("close", "Close sessions, ending their programs",
                        [this](Service& service) { return closeSessions(service, close_); });
  close->add_option("SESSION", close_.sessions, sessionHelp);
  close->add_flag("--exited", close_.allExited, "All whose program has ended");
  close->add_flag("--all", close_.all, "All");
}

void CommandLine::addWatch() {
  CLI::App* watch = add("watch", "Show all sessions live, those that need you first",
                        [this](Service& service) { return watchSessions(service, start_.detachKey); });
  watch->footer(
      "\n! marks sessions that wait for your answer, * those with something you have not seen.\n"
      "Keys: enter attach, a acknowledge, x close, up/down (k/j), page up/down and home/end (g/G) move, q "
      "quit.");
  addDetachKey(watch);
}

void CommandLine::addServiceCommands() {
  CLI::App* status =
      add("status", "Show the service", [this](Service& service) { return showStatus(service, asJson_); });
  status->add_flag("--json", asJson_, "As one line of JSON");
  status->footer(
      "\nFields: clientVersion, root, isRunning; while it runs also version, serviceEpoch, sessions, "
      "runningSessions,\n"
      "pendingWaits, disconnects (reason, lastAction, subscribed, queuedBytes, idleSeconds), features.");
  CLI::App* stop = add("stop", "Stop the service, which has to have no sessions",
                       [this](Service& service) { return stopService(service, closesAll_); });
  stop->add_flag("--close-all", closesAll_, "Close all sessions first");
  CLI::App* completion = add("completion", "Print completions for a shell",
                             [this](Service&) { return printCompletion(shell_, app_); });
  completion->add_option("SHELL", shell_, "bash, zsh or fish")
      ->required()
      ->check(CLI::IsMember(std::vector<std::string>(completedShells.begin(), completedShells.end())));
}

// The program to start: what the parser left over, which begins at the first word that is no option.
void CommandLine::takeCommand(CLI::App* command) {
  start_.command = command->remaining();
  std::ranges::transform(start_.command, start_.command.begin(), asTyped);
  const std::size_t names = command->get_name() == "restart" ? 1 : 0;
  for (std::size_t index = 0; index <= names && index < start_.command.size(); ++index) {
    const std::string& word = start_.command[index];
    if (word.starts_with('-')) throw CLI::ExtrasError({word});
  }
  if (!words_.rest) return;
  const bool isPrograms = start_.command.size() > names;
  if (isPrograms) start_.command.emplace_back("--");
  start_.command.insert(start_.command.end(), words_.rest->begin(), words_.rest->end());
}

bool CommandLine::passesStatus() const {
  for (const char* name : {"new", "attach", "restart", "run", "exec"}) {
    if (app_.got_subcommand(name)) return true;
  }
  return false;
}

int CommandLine::fail(const Trouble& trouble) const {
  Notices(isQuiet_).error(trouble.what());
  if (words_.named == "agent") return ExitStatus::failure;
  return passesStatus() && trouble.status < ExitStatus::ownFailure ? ExitStatus::ownFailure : trouble.status;
}

int CommandLine::failUsage(const CLI::ParseError& error) const {
  // Help and version are thrown as well.
  if (error.get_exit_code() == 0) return app_.exit(error);
  if (app_.get_subcommands().empty() && app_.remaining_size() > 0) {
    const std::string first = words_.named.empty() ? asTyped(app_.remaining().front()) : words_.named;
    Notices().error(first + " is no " + (first.starts_with('-') ? "option" : "command") +
                    ". `velotide --help` lists those there are.");
    return ExitStatus::usage;
  }
  Notices().error(std::string(error.what()) + ". See velotide --help, or velotide COMMAND --help.");
  // Agents read the usual status of wrong usage as "block".
  if (words_.named == "agent") return ExitStatus::failure;
  return passesStatus() ? ExitStatus::ownFailure : ExitStatus::usage;
}

int CommandLine::run(int count, char** words) {
  words_ = commandWords({words + 1, words + count});
  try {
    // The parser takes them from the end.
    std::ranges::reverse(words_.own);
    app_.parse(std::move(words_.own));
    for (CLI::App* command : app_.get_subcommands()) takeCommand(command);
    waits_.exec.command = start_.command;
    send_.text.insert(send_.text.end(), start_.command.begin(), start_.command.end());
    // What an agent calls finds its session, and through it the service, by itself.
    if (agents_.inSession) return agents_.inSession();
    const Notices notices(isQuiet_);
    Service service(ServiceRoot::find(root_), notices);
    return action_(service);
  } catch (const CLI::ParseError& error) {
    return failUsage(error);
  } catch (const Trouble& trouble) {
    return fail(trouble);
  } catch (const std::exception& failure) {
    return fail(Trouble(std::string("Something went wrong: ") + failure.what() + "."));
  }
}

}  // namespace

int runCommandLine(int count, char** words) { return CommandLine().run(count, words); }

}  // namespace velotide::client
