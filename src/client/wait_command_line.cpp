#include "client/wait_command_line.h"

#include <string>

namespace velotide::client {

namespace {

constexpr const char* sessionHelp = "Session: its ID or an unambiguous beginning";

}  // namespace

void WaitCommandLine::addTo(const Add& add) {
  addWait(add);
  addCall(add);
  addExec(add);
}

void WaitCommandLine::addWait(const Add& add) {
  CLI::App* command = add("wait", "Wait until something happens in a session",
                          [this](Service& service) { return waitForSession(service, wait); });
  command->add_option("SESSION", wait.session, std::string(sessionHelp) + "; with --event any when left out");
  command->add_option("--command", wait.command, "Until this command has ended")->type_name("ID");
  command->add_flag("--last-command", wait.lastCommand, "Until the newest command has ended");
  command
      ->add_option("--agent", wait.activity, "Until the agent is unknown, working, idle, blocked or exited")
      ->type_name("ACTIVITY");
  command->add_flag("--attention", wait.attention, "Until something new asks for attention");
  command->add_flag("--output", wait.output, "Until there is new output");
  command->add_flag("--event", wait.event, "Until anything happens");
  command->add_option("--timeout", wait.timeout, "Give up after so long; without it never")
      ->type_name("SECONDS");
  command
      ->add_option("--after", wait.after, "Count what happened since this position, instead of from now on")
      ->type_name("CURSOR");
  command->add_flag("--show-cursor", wait.showsCursor,
                    "Print \"velotide: cursor POSITION\" to standard error, for --after");
  command->add_flag("--json", wait.asJson, "Print the result as one line of JSON, whatever it is");
  command->footer(
      "\nA command that has ended, and an agent that is in that state already, are an answer at once.\n"
      "Prints how the command ended, the agent's activity, the kind of event or attention, or the output's "
      "revision.\n"
      "Exit status: 0 it came about, 124 timed out, 4 the session is closed or the command or agent no "
      "longer "
      "there,\n"
      "3 no service is running (any more), 1 otherwise; 128+n ended by signal n.\n"
      "Fields of a result: waitID, outcome, cursor (appEpoch, sequence), and by what was waited for event, "
      "agent,\n"
      "commandID and commandState, attention, revision.");
}

void WaitCommandLine::addCall(const Add& add) {
  CLI::App* command = add("call", "Send a request through the service's mailbox and print the answer",
                          [this](Service& service) { return callAction(service, call); });
  command
      ->add_option("ACTION", call.action,
                   "list_attention, get_agent_state, read_session_events, wait_session, cancel_wait,\n"
                   "cancel_all_waits, bind_native_agent or report_agent_state")
      ->required();
  command->add_option("FIELD", call.fields, "KEY=TEXT, or KEY:=JSON for what is no text");
  command->add_option("--json", call.object, "Fields as one JSON object")->type_name("OBJECT");
  command->add_option("--tab", call.session, std::string(sessionHelp) + "; same as tab=ID")
      ->type_name("SESSION");
  command->footer(
      "\nFields: tab, nativeAgentToken, agentKind, agentReport, eventCursor, eventLimit, waitSpec, "
      "controlID, "
      "waitID,\n"
      "noResponse. For people who write tools: docs/mailbox.md describes them.\n"
      "Exit status: 0 when the answer is ok, else 1, with the error word on standard error.");
}

void WaitCommandLine::addExec(const Add& add) {
  CLI::App* command =
      add("exec", "Type a command into a session's shell, print its output, exit with its status",
          [this](Service& service) { return executeInSession(service, exec); });
  command->add_option("SESSION", exec.session, std::string(sessionHelp))->required();
  command->add_option("--timeout", exec.timeout, "Stop waiting after so long; the command goes on")
      ->type_name("SECONDS");
  command->add_flag("--force", exec.force, "Type also where the line does not look empty, discarding it");
  command->footer(
      "\nOne word is text for the session's shell, pipes and all; bash and zsh take a ! in it, outside of\n"
      "single quotes, for history. Several words are a program and its arguments, passed on as they are.\n"
      "The output is that of a terminal: it may be coloured, set in columns or wait in a pager, which\n"
      "`| cat` and PAGER=cat prevent. Nothing is typed into a running program or a half-typed line.\n"
      "Exit status: the command's; else 120 the prompt is not free, 121 the shell does not report its "
      "commands, "
      "122\n"
      "another command began before this one's end was told, 123 the session ended, 124 timed out, 125 own "
      "failure,\n"
      "130 interrupted, 128+n ended by signal n. With 120 and 121 nothing was typed.");
}

}  // namespace velotide::client
