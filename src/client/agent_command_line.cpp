#include "client/agent_command_line.h"

#include <utility>

namespace velotide::client {

void AgentCommandLine::addTo(const Add& add, CLI::App& app) {
  addAttention(add);
  addEvents(add);
  addAgent(app);
}

void AgentCommandLine::addAttention(const Add& add) {
  CLI::App* agents = add("agents", "List the agents in the sessions",
                         [this](Service& service) { return listAgents(service, listsAsJson_); });
  agents->add_flag("--json", listsAsJson_, "One agent a line as JSON; [] when there is none");
  agents->footer(
      "\nSINCE is when the agent, or what was seen of it, last said so.\n"
      "Fields: session, agent (instanceID, runID, kind, activity, blockReason, lastResult, source, "
      "confidence,\n"
      "reason, updatedAt, expiresAt, reportSequence, ruleVersion, context).");
  CLI::App* list = add("attention", "List what waits for you",
                       [this](Service& service) { return listAttention(service, attention_); });
  list->add_flag("-f,--follow", attention_.follows, "Go on with every change");
  list->add_flag("--json", attention_.asJson, "One item a line as JSON; [] when there is none");
  list->footer(
      "\nFields: id, tabID (the session), instanceID, runID, kind, createdAt, createdSequence, source, "
      "confidence,\n"
      "terminal, context, version, readAt, resolvedAt (then it no longer waits), isStale.");
  CLI::App* ack = add("ack", "Acknowledge what waits for you",
                      [this](Service& service) { return client::acknowledge(service, acknowledge_); });
  ack->add_option("ITEM", acknowledge_.items, "Its ID or an unambiguous beginning");
  ack->add_option("--session", acknowledge_.session, "All of this session")->type_name("SESSION");
  ack->add_flag("--all", acknowledge_.all, "All");
  ack->footer("\nNotices go away; what an agent asks stays, marked as seen, until the agent moves on.");
}

void AgentCommandLine::addEvents(const Add& add) {
  CLI::App* list =
      add("events", "Print what happened", [this](Service& service) { return readEvents(service, events_); });
  list->add_flag("-f,--follow", events_.follows, "Go on with what happens from now on");
  list->add_option("--after", events_.after, "Begin behind this event; without it with the oldest held")
      ->type_name("EPOCH:SEQUENCE");
  list->add_flag("--show-cursor", events_.showsCursor,
                 "Print \"velotide: cursor EPOCH:SEQUENCE\" to standard error, for --after");
  list->add_flag("--json", events_.asJson, "One event a line as JSON; [] when there is none");
  list->footer(
      "\nFields: cursor (appEpoch, sequence), tabID (the session), kind, occurredAt, commandID, "
      "commandState, "
      "revision,\n"
      "agent, location, attention. --follow ends by a signal, and exits with 0.");
}

void AgentCommandLine::addAgent(CLI::App& app) {
  CLI::App* agent = app.add_subcommand("agent", "For agents to call: bind, and report their state");
  agent->require_subcommand(1);
  agent->fallthrough();
  agent->footer(
      "\nActs on the session that it runs in. Outside a session it does nothing and succeeds, so it may "
      "stand in any\n"
      "hook. Prints nothing on standard output; exit status 0 or 1, never 2.");
  const auto addVerb = [this, agent](const char* name, const char* description, std::function<int()> action) {
    CLI::App* verb = agent->add_subcommand(name, description);
    verb->fallthrough();
    verb->final_callback([this, action = std::move(action)] { inSession = action; });
    return verb;
  };
  CLI::App* bind = addVerb("bind", "Become the session's agent", [this] { return bindAgent(kind_); });
  bind->add_option("KIND", kind_, "claude, codex or tesseral")->required();
  CLI::App* tell = addVerb("report", "Tell the agent's state", [this] { return reportAgent(report_); });
  tell->add_option("STATE", report_.activity, "working, idle, blocked, unknown or exited")->required();
  tell->add_option("DETAIL", report_.detail,
                   "Blocked: approval, question or other; idle: completed, failed, interrupted or unknown");
  tell->add_option("--agent-session", report_.agentSession, "The agent's own session")->type_name("UUID");
  tell->add_option("--task", report_.task, "What it works on")->type_name("NAME");
  tell->add_option("--gate", report_.gate, "What it waits at")->type_name("NAME");
  CLI::App* leave = addVerb("exit", "Tell that the agent is over", [this] {
    report_.activity = "exited";
    return reportAgent(report_);
  });
  leave->add_option("RESULT", report_.detail, "completed, failed, interrupted or unknown");
  CLI::App* hook =
      addVerb("hook", "Tell what an agent's hook says", [this] { return followAgentHook(kind_, payload_); });
  hook->add_option("KIND", kind_, "claude or codex")->required();
  hook->add_option("JSON", payload_, "What the hook got; standard input when left out");
}

}  // namespace velotide::client
