#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "base/record.h"
#include "client/signal_pipe.h"

// Results on standard output.
namespace velotide::client {

// Writes all of it; throws Trouble when standard output takes no more.
void print(ByteView bytes);
inline void print(std::string_view text) { print(bytesOf(text)); }

// While it lives, print() throws Trouble where nobody reads standard output and a signal asks to end. One
// at a time in a process.
class PrintingUntilSignal {
 public:
  // `signals` must outlive it.
  explicit PrintingUntilSignal(SignalPipe& signals);
  ~PrintingUntilSignal();
  PrintingUntilSignal(const PrintingUntilSignal&) = delete;
  PrintingUntilSignal& operator=(const PrintingUntilSignal&) = delete;
};

// One record, one line of JSON.
template <Record T>
void printJson(const T& record) {
  ByteQueue line;
  encodeText(line, record);
  line.append("\n");
  print(line.view());
}

// Rows under a heading, columns aligned.
void printTable(const std::vector<std::string>& heading, const std::vector<std::vector<std::string>>& rows);

// "name: value" lines, values aligned.
void printFields(const std::vector<std::pair<std::string, std::string>>& fields);

// A point in time as the person's clock shows it.
std::string localTime(Date date);

}  // namespace velotide::client
