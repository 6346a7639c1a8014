#pragma once

#include <cstdint>
#include <string>

#include "end_to_end/printed_text.h"
#include "end_to_end/report.h"

namespace velotide::bench {

struct Options {
  std::string program;  // This program, which is also the child that prints and echoes.
  std::string runtime = "build/bin/velotide-runtime";
  std::string client = "build/bin/velotide";
  std::string only;
  std::string jsonFile;
  PrintedText text = PrintedText::lines;
  int rounds = 5;
  std::uint64_t mebibytes = 64;
  std::uint64_t memoryMebibytes = 256;
  int idleSeconds = 5;
  int timeoutSeconds = 900;
};

// Each measure starts what it needs, ends it, and adds its figures to the report.
void measureOutput(const Options& options, Report& report);
void measureSubscribedOutput(const Options& options, Report& report);
void measureManySubscribers(const Options& options, Report& report);
void measureCrowd(const Options& options, Report& report);
void measureBurden(const Options& options, Report& report);
void measureAgents(const Options& options, Report& report);
void measureBesideTmux(const Options& options, Report& report);
void measureEcho(const Options& options, Report& report);
void measureAttachedEcho(const Options& options, Report& report);
void measureMemory(const Options& options, Report& report);
void measureIdle(const Options& options, Report& report);
void measureStart(const Options& options, Report& report);
void measureCreate(const Options& options, Report& report);
void measureCreateUnderHighLimit(const Options& options, Report& report);
void measureCreateBesideFullJournals(const Options& options, Report& report);

}  // namespace velotide::bench
