#include <benchmark/benchmark.h>

#include <string>

#include "commands/bell_parser.h"
#include "commands/command_ledger.h"
#include "commands/output_insights.h"
#include "commands/shell_integration_parser.h"
#include "streams.h"

// What the scanners of terminal output cost, each alone, and what the end of a command costs.
namespace velotide {
namespace {

// What one read of a terminal gives.
constexpr std::size_t readSize = 4096;
constexpr std::size_t streamSize = 1 << 20;

template <typename Scan>
void overStream(benchmark::State& state, const std::string& stream, Scan scan) {
  std::uint64_t offset = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (std::size_t at = 0; at < stream.size(); at += readSize) {
      const ByteView chunk = bytesOf(std::string_view(stream).substr(at, readSize));
      scan(chunk, offset);
      offset += chunk.size();
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * stream.size()));
}

void markParser(benchmark::State& state, const std::string& stream) {
  TerminalShellIntegrationParser parser;
  overStream(state, stream, [&](ByteView chunk, std::uint64_t offset) {
    benchmark::DoNotOptimize(parser.acceptLocated(chunk, offset));
  });
}

void bellCount(benchmark::State& state, const std::string& stream) {
  TerminalBellParser parser;
  overStream(state, stream,
             [&](ByteView chunk, std::uint64_t) { benchmark::DoNotOptimize(parser.accept(chunk)); });
}

void visibleText(benchmark::State& state, const std::string& stream) {
  TerminalBellParser parser;
  ByteQueue visible;
  overStream(state, stream, [&](ByteView chunk, std::uint64_t) {
    benchmark::DoNotOptimize(parser.consume(chunk, visible));
    visible.clear();
  });
}

void ledgerIdle(benchmark::State& state, const std::string& stream) {
  TerminalRuntimeCommandLedger ledger;
  overStream(state, stream, [&](ByteView chunk, std::uint64_t offset) {
    benchmark::DoNotOptimize(ledger.accept(chunk, offset, Uuid{}, Date{}));
  });
}

void ledgerRunning(benchmark::State& state, const std::string& stream) {
  TerminalRuntimeCommandLedger ledger;
  const std::string start = "\x1b]777;Velotide;start=6d616b65\a";
  ledger.accept(bytesOf(start), 0, Uuid{}, Date{});
  overStream(state, stream, [&](ByteView chunk, std::uint64_t offset) {
    benchmark::DoNotOptimize(ledger.accept(chunk, start.size() + offset, Uuid{}, Date{}));
  });
}

void insights(benchmark::State& state, const std::string& output) {
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(TerminalOutputInsightAnalyzer::outputSummary(output));
  }
}

void errorSignal(benchmark::State& state, const std::string& output) {
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(TerminalOutputInsightAnalyzer::hasErrorSignal(output));
  }
}

using Measurement = void (*)(benchmark::State&, const std::string&);

void registerAll(const char* name, Measurement measurement, const std::vector<NamedText>& texts) {
  for (const NamedText& text : texts) {
    benchmark::RegisterBenchmark((std::string(name) + "/" + text.name).c_str(), measurement, text.text)
        ->MinTime(0.1);
  }
}

const bool registered = [] {
  const std::vector<NamedText> streams = outputStreams(streamSize);
  registerAll("marks", markParser, streams);
  registerAll("bells", bellCount, streams);
  registerAll("visible", visibleText, streams);
  registerAll("ledger-idle", ledgerIdle, streams);
  registerAll("ledger-running", ledgerRunning, streams);
  const std::vector<NamedText> outputs = commandOutputs();
  registerAll("insights", insights, outputs);
  registerAll("error-signal", errorSignal, outputs);
  return true;
}();

}  // namespace
}  // namespace velotide
