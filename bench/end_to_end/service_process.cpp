#include "end_to_end/service_process.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "end_to_end/waiting.h"

namespace velotide::bench {
namespace {

constexpr std::chrono::seconds startPatience{10};

std::string socketPath(const std::string& root) { return root + "/runtime.sock"; }

Process startService(const std::string& executable, const std::string& root) {
  return forkProcess([&] {
    ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
    return execute({executable, "--root", root});
  });
}

void awaitHello(const std::string& root) {
  const auto deadline = Clock::now() + startPatience;
  while (true) {
    try {
      WireClient(socketPath(root), {}).call("hello");
      return;
    } catch (const Interrupted&) {
      throw;
    } catch (const std::runtime_error&) {
      if (Clock::now() > deadline) throw;
    }
    ::usleep(200);
  }
}

}  // namespace

PrivateDirectory::PrivateDirectory() : path_("/tmp/velotide-bench-XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) failWithErrno("temporary directory");
}

PrivateDirectory::~PrivateDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ServiceProcess::ServiceProcess(const std::string& executable) {
  const auto begin = Clock::now();
  process_ = startService(executable, root());
  awaitHello(root());
  secondsToHello_ = secondsBetween(begin, Clock::now());
  std::ifstream file(root() + "/ui-capability");
  capability_.assign(std::istreambuf_iterator<char>(file), {});
}

ServiceProcess::~ServiceProcess() {
  process_.end();
  awaitOrphans();
}

WireClient ServiceProcess::connect() const { return WireClient(socketPath(root()), capability_); }

RaisedDescriptorLimit::RaisedDescriptorLimit(rlim_t wanted) {
  if (::getrlimit(RLIMIT_NOFILE, &before_) != 0) failWithErrno("descriptor limit");
  reached_ = wanted;
  const rlimit raised{wanted, std::max(wanted, before_.rlim_max)};
  if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) return;
  reached_ = std::min(wanted, before_.rlim_max);
  const rlimit possible{reached_, before_.rlim_max};
  if (::setrlimit(RLIMIT_NOFILE, &possible) != 0) failWithErrno("descriptor limit");
}

RaisedDescriptorLimit::~RaisedDescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }

}  // namespace velotide::bench
