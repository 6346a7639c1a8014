#include "base/system_log.h"

#include <syslog.h>

namespace velotide {

void systemLog(const std::string& line) { syslog(LOG_DAEMON | LOG_ERR, "%s", line.c_str()); }

}  // namespace velotide
