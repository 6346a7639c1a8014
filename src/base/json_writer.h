#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "base/byte_queue.h"
#include "base/bytes.h"

namespace velotide {

// Writes compact JSON text to the back of a queue, value by value. The text contains no line feed.
// The caller pairs begin and end and writes a key before each value of an object.
class JsonWriter {
 public:
  // `out` must outlive the writer.
  explicit JsonWriter(ByteQueue& out);
  ~JsonWriter();
  JsonWriter(const JsonWriter&) = delete;
  JsonWriter& operator=(const JsonWriter&) = delete;

  void beginObject();
  void endObject();
  void beginArray();
  void endArray();
  void key(std::string_view name);

  void text(std::string_view value);
  void boolean(bool value);
  void integer(std::int64_t value);
  void natural(std::uint64_t value);
  void real(double value);
  // As a base64 string, encoded straight into the queue.
  void bytes(const CarriedBytes& value);

  // False once a number that JSON cannot express (infinite, not a number) was written; the text is then
  // unusable.
  bool good() const;

 private:
  struct Engine;
  std::unique_ptr<Engine> engine_;
};

}  // namespace velotide
