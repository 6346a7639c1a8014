#include "service/scripted_terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "terminal/pseudo_terminal.h"

namespace velotide {

namespace {

// Beyond what the system gives to processes.
constexpr std::int32_t firstProcess = 1 << 30;

std::uint64_t entropy = 1;

int failed(int error) {
  errno = error;
  return -1;
}

}  // namespace

std::string quickestParent() { return std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp"; }

void restartEntropy() { entropy = 1; }

void ScriptedProgram::print(std::string_view text) {
  const ssize_t count = ::send(terminal_.get(), text.data(), text.size(), MSG_DONTWAIT);
  if (count > 0) printed_ += text.substr(0, static_cast<std::size_t>(count));
}

std::string ScriptedProgram::takeInput() {
  std::array<char, 4096> buffer;
  std::string input;
  for (ssize_t count; (count = ::recv(terminal_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0;) {
    input.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return input;
}

void ScriptedProgram::end(std::int32_t how) {
  if (status) return;
  status = how;
  closeTerminal();
}

ScriptedTerminals& ScriptedTerminals::instance() {
  static ScriptedTerminals terminals;
  return terminals;
}

ScriptedProgram* ScriptedTerminals::find(std::int32_t pid) {
  const auto index = static_cast<std::size_t>(pid - firstProcess);
  return pid >= firstProcess && index < programs.size() ? &programs[index] : nullptr;
}

ScriptedProgram* ScriptedTerminals::findMaster(int master) {
  const auto newest = std::find_if(programs.rbegin(), programs.rend(),
                                   [&](const ScriptedProgram& program) { return program.master == master; });
  return newest == programs.rend() ? nullptr : &*newest;
}

}  // namespace velotide

using velotide::FileDescriptor;
using velotide::ScriptedProgram;
using velotide::ScriptedTerminals;

extern "C" {

int velotide_pty_spawn(const char*, char* const[], char* const[], const char*, std::int32_t, std::int32_t,
                       std::int32_t* pid) {
  ScriptedTerminals& terminals = ScriptedTerminals::instance();
  if (terminals.refusesToStart) return velotide::failed(ENOENT);
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return -1;
  ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
  *pid = velotide::firstProcess + static_cast<std::int32_t>(terminals.programs.size());
  terminals.programs.emplace_back(*pid, FileDescriptor(ends[1]), ends[0]);
  return ends[0];
}

int velotide_pty_resize(int, std::int32_t columns, std::int32_t rows) {
  const auto isSide = [](std::int32_t side) { return side >= 1 && side <= 1000; };
  return isSide(columns) && isSide(rows) ? 0 : velotide::failed(EINVAL);
}

int velotide_pty_echo(int master) {
  const ScriptedProgram* program = ScriptedTerminals::instance().findMaster(master);
  return program == nullptr ? -1 : program->echoes;
}

int velotide_pty_poll_exit(std::int32_t pid, std::int32_t* status) {
  ScriptedProgram* program = ScriptedTerminals::instance().find(pid);
  if (program == nullptr || program->isReaped) return velotide::failed(ECHILD);
  if (!program->status) return 0;
  program->isReaped = true;
  *status = *program->status;
  return 1;
}

int kill(pid_t pid, int signal) noexcept {
  ScriptedProgram* program = ScriptedTerminals::instance().find(pid);
  if (program == nullptr || program->isReaped) return velotide::failed(ESRCH);
  if (signal == SIGKILL || (signal == SIGHUP && !program->ignoresHangUp)) program->end(128 + signal);
  return 0;
}

pid_t tcgetpgrp(int master) noexcept {
  const ScriptedProgram* program = ScriptedTerminals::instance().findMaster(master);
  return program != nullptr && program->holdsTerminal() ? program->pid : velotide::failed(ENOTTY);
}

int getentropy(void* bytes, size_t count) {
  auto* at = static_cast<std::uint8_t*>(bytes);
  for (; count > 0; --count, ++at) {
    velotide::entropy = velotide::entropy * 6364136223846793005U + 1442695040888963407U;
    *at = static_cast<std::uint8_t>(velotide::entropy >> 56);
  }
  return 0;
}
}
