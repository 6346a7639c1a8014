#include "terminal/output_journal.h"

#include <gtest/gtest.h>

#include <string>

namespace velotide {
namespace {

using Journal = TerminalRuntimeOutputJournal;
using Error = TerminalRuntimeOutputError;

std::string textOfBatch(const TerminalRuntimeOutputBatch& batch) {
  return std::string(textOf(batch.data.head())) + std::string(textOf(batch.data.tail()));
}

std::optional<Error> errorOf(auto action) {
  try {
    action();
    return std::nullopt;
  } catch (const Failure<Error>& failure) {
    return failure.word;
  }
}

TEST(OutputJournal, HoldsItsCapacityWithinBounds) {
  for (const auto& [capacity, allowed] :
       {std::pair{0, false}, {-1, false}, {1, true}, {16777216, true}, {16777217, false}}) {
    const auto error = errorOf([size = capacity] { Journal(size, Uuid::random()); });
    EXPECT_EQ(error, allowed ? std::nullopt : std::optional(Error::invalidCapacity)) << capacity;
  }
}

// Every read of a small journal, after every append of a varied script, agrees with a journal that forgets
// nothing.
TEST(OutputJournal, AgreesWithAnUnboundedModel) {
  for (const std::size_t capacity : {1U, 4U, 7U, 16U}) {
    Journal journal(static_cast<std::int64_t>(capacity), Uuid::random());
    std::string model;
    for (std::size_t step = 0; step < 60; ++step) {
      std::string piece;
      for (std::size_t each = 0; each < (step * 7) % 23; ++each)
        piece += static_cast<char>('a' + (model.size() + each) % 26);
      journal.append(bytesOf(piece));
      model += piece;
      const std::size_t oldest = model.size() - std::min(model.size(), capacity);
      ASSERT_EQ(journal.endOffset(), model.size());
      ASSERT_EQ(journal.retainedBytes(), model.size() - oldest);
      for (std::size_t wanted = model.size() > 2 * capacity ? model.size() - 2 * capacity : 0;
           wanted <= model.size(); ++wanted) {
        for (std::size_t limit = 1; limit <= capacity; ++limit) {
          const auto batch = journal.read(TerminalRuntimeOutputCursor{journal.generation(), wanted},
                                          static_cast<std::int64_t>(limit));
          const std::size_t start = std::max(wanted, oldest);
          ASSERT_EQ(textOfBatch(batch), model.substr(start, limit));
          ASSERT_EQ(batch.cursor.offset, start + std::min(limit, model.size() - start));
          ASSERT_EQ(batch.hasGap, wanted < oldest);
          ASSERT_EQ(batch.latestOffset, model.size());
        }
      }
      ASSERT_EQ(journal.read({}, 1).hasGap, oldest > 0);
      const TerminalRuntimeOutputCursor future{journal.generation(), model.size() + 1};
      ASSERT_EQ(errorOf([&] { journal.read(future, 1); }), Error::futureCursor);
    }
    for (const std::size_t limit : {std::size_t{0}, capacity + 1}) {
      const auto read = [&] { journal.read({}, static_cast<std::int64_t>(limit)); };
      EXPECT_EQ(errorOf(read), Error::invalidLimit) << limit;
    }
  }
}

}  // namespace
}  // namespace velotide
