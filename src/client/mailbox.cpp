#include "client/mailbox.h"

#include <unistd.h>

#include "base/failure.h"
#include "base/private_files.h"
#include "client/notices.h"
#include "client/private_record.h"

namespace velotide::client {

RuntimeNativeResponse askMailbox(const AgentContext& context, RuntimeNativeRequest request,
                                 const std::string& temporary, Seconds limit) {
  request.id = Uuid::random().text();
  const std::string requestFile = context.mailbox + "/requests/" + request.id + ".json";
  const std::string responseFile = context.mailbox + "/responses/" + request.id + ".json";
  if (!isPrivateDirectory(context.mailbox + "/requests"))
    throw Trouble("There is no mailbox at " + context.mailbox + ".", ExitStatus::notRunning);
  ByteQueue content;
  encodeText(content, request);
  try {
    ::unlink(temporary.c_str());
    replacePrivateFile(requestFile, temporary, content.view());
  } catch (const SystemFailure&) {
    throw Trouble("No request can be put into the mailbox at " + context.mailbox +
                  ". Check the space and the rights there.");
  }
  const Notices silent(true);
  for (Patience patience(silent, "the mailbox", limit); !patience.isSpent(); patience.pause()) {
    const auto response = readPrivateRecord<RuntimeNativeResponse>(responseFile);
    if (!response) continue;
    ::unlink(responseFile.c_str());
    return *response;
  }
  ::unlink(requestFile.c_str());
  throw Trouble("The service does not answer in its mailbox. See `velotide status`.");
}

}  // namespace velotide::client
