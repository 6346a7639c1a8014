#pragma once

#include <map>
#include <string>
#include <string_view>

#include "base/json_document.h"
#include "bridge/native_messages.h"

namespace velotide {

// The tools that speak to the service under test through its mailbox. Every request is to be answered once:
// with a result when it began a wait, and then exactly one.
class MailboxUser {
 public:
  // `root`: of the mailbox.
  explicit MailboxUser(const std::string& root) : root_(root) {}

  void drop(const RuntimeNativeRequest& request);
  // A file that is no request, under the name of one.
  void dropRaw(std::string_view content);
  // Takes out the responses that are there.
  void collect();
  void requireAllAnswered() const;
  std::size_t dropped() const { return dropped_; }

 private:
  void take(const std::string& name);
  void write(const std::string& id, std::string_view content);

  const std::string root_;
  JsonDocument document_;
  // The actions of the requests that have no answer yet.
  std::map<std::string, std::string> unanswered_;
  std::size_t dropped_ = 0;
};

}  // namespace velotide
