#include "terminal/output_journal.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

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

TEST(OutputJournal, RefusesForeignAndFutureCursorsAndBadLimits) {
  Journal journal(4, Uuid::random());
  journal.append(bytesOf("abcd"));
  const Uuid own = journal.generation();
  const Uuid other = Uuid::random();
  using Cursor = TerminalRuntimeOutputCursor;
  using Row = std::tuple<std::optional<Cursor>, std::int64_t, std::optional<Error>>;
  for (const auto& [after, limit, error] :
       {Row{Cursor{own, 4}, 4, {}}, Row{Cursor{own, 5}, 4, Error::futureCursor},
        Row{Cursor{other, 4}, 4, Error::generationChanged},
        Row{Cursor{other, 99}, 4, Error::generationChanged}, Row{std::nullopt, 0, Error::invalidLimit},
        Row{std::nullopt, -1, Error::invalidLimit}, Row{std::nullopt, 5, Error::invalidLimit},
        Row{std::nullopt, 1, {}}}) {
    EXPECT_EQ(errorOf([&, from = after, most = limit] { journal.read(from, most); }), error) << limit;
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
    }
  }
}

}  // namespace
}  // namespace velotide
