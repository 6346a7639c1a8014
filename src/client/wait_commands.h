#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/service.h"

// The commands that wait for something and those that reach the service through its mailbox. All answer with
// the exit status and throw Trouble.
namespace velotide::client {

namespace WaitStatus {
// What was waited for cannot come about any more: the session is closed, or the command or agent gone.
inline constexpr int targetGone = 4;
inline constexpr int timeout = 124;
}  // namespace WaitStatus

struct CallOptions {
  std::string action;
  // KEY=TEXT or KEY:=JSON.
  std::vector<std::string> fields;
  // Fields as one JSON object.
  std::string object;
  std::optional<std::string> session;
};

struct WaitOptions {
  // Any when left out.
  std::optional<std::string> session;
  // Exactly one of the next six says what to wait for.
  std::string command;
  bool lastCommand = false;
  std::string activity;
  bool attention = false;
  bool output = false;
  bool event = false;
  std::optional<Seconds> timeout;
  std::string after;
  bool showsCursor = false;
  bool asJson = false;
};

namespace ExecStatus {
// The prompt is not free: nothing was typed.
inline constexpr int notAtPrompt = 120;
// The shell does not tell where commands begin and end: nothing was typed.
inline constexpr int noIntegration = 121;
// Another command began before the end of this one was told.
inline constexpr int superseded = 122;
// The session ended or was closed meanwhile.
inline constexpr int sessionEnded = 123;
inline constexpr int timeout = 124;
}  // namespace ExecStatus

struct ExecOptions {
  std::string session;
  std::optional<Seconds> timeout;
  bool force = false;
  std::vector<std::string> command;
};

// call_command.cpp
int callAction(Service& service, const CallOptions& options);

// wait_command.cpp
int waitForSession(Service& service, const WaitOptions& options);

// exec_command.cpp
int executeInSession(Service& service, const ExecOptions& options);

}  // namespace velotide::client
