#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/service.h"

// What each command of `velotide` does. All answer with the exit status and throw Trouble.
namespace velotide::client {

struct StartOptions {
  bool isDetached = false;
  bool isLogin = false;
  bool removesAtEnd = false;
  bool asJson = false;
  // Without shell integration.
  bool leavesShellAlone = false;
  std::string directory;
  std::string detachKey = "ctrl-\\";
  std::vector<std::string> command;
};

struct ReadOptions {
  std::string session;
  std::string after;
  bool follows = false;
  bool showsCursor = false;
  bool asJson = false;
};

struct SendOptions {
  std::string session;
  // As whom an agent types; a person without it.
  std::optional<std::string> owner;
  std::vector<std::string> text;
  std::vector<std::string> keys;
  bool pressesEnter = false;
};

struct CloseOptions {
  std::vector<std::string> sessions;
  bool allExited = false;
  bool all = false;
};

struct AttentionOptions {
  bool follows = false;
  bool asJson = false;
};

struct AcknowledgeOptions {
  std::vector<std::string> items;
  std::optional<std::string> session;
  bool all = false;
};

struct EventOptions {
  std::string after;
  bool follows = false;
  bool showsCursor = false;
  bool asJson = false;
};

struct AgentReportOptions {
  std::string activity;
  // The reason to be blocked, or the result.
  std::string detail;
  std::string agentSession;
  std::string task;
  std::string gate;
};

// start_commands.cpp
int startSession(Service& service, const StartOptions& options);
int attachSession(Service& service, const std::optional<std::string>& name, const std::string& detachKey);
int runProgram(Service& service, const StartOptions& options);
int restartSession(Service& service, const std::string& name, const StartOptions& options);

// list_commands.cpp
int listSessions(Service& service, bool asJson, bool namesOnly);
int showSession(Service& service, const std::string& name, bool asJson);

// commands_command.cpp
int listCommands(Service& service, const std::string& name, bool follows, bool asJson);

// output_command.cpp
int printCommandOutput(Service& service, const std::string& sessionName, const std::string& commandName,
                       bool follows);

// read_command.cpp
int readOutput(Service& service, const ReadOptions& options);

// send_command.cpp
int sendInput(Service& service, const SendOptions& options);

// session_commands.cpp
int resizeSession(Service& service, const std::string& name, std::int64_t columns, std::int64_t rows);
int closeSessions(Service& service, const CloseOptions& options);
void closeSession(Service& service, const Uuid& id);

// watch_command.cpp
int watchSessions(Service& service, const std::string& detachKey);

// service_commands.cpp
int showStatus(Service& service, bool asJson);
int stopService(Service& service, bool closesAll);

// attention_commands.cpp
int listAgents(Service& service, bool asJson);
int listAttention(Service& service, const AttentionOptions& options);
int acknowledge(Service& service, const AcknowledgeOptions& options);

// event_command.cpp
int readEvents(Service& service, const EventOptions& options);

// agent_commands.cpp: called by agents, wherever they run; outside a hosted session they do nothing.
int bindAgent(const std::string& kind);
int reportAgent(const AgentReportOptions& options);
int followAgentHook(const std::string& name, const std::string& argument);

}  // namespace velotide::client
