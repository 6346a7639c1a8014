#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace velotide::bench {

double median(std::vector<double> values);
// The value below which this share of them lies.
double quantile(std::vector<double> values, double share);

// Measurements of one figure, the service's and its floor's taken in turn.
struct Pairs {
  std::vector<double> service;
  std::vector<double> floor;

  void add(double serviceValue, double floorValue);
  // Median of the quotients of what was measured side by side: drift of the machine cancels out.
  double ratio() const;
};

// What a figure must reach.
struct Target {
  enum class Kind { none, ratioAtLeast, ratioAtMost, serviceBelow, serviceAbove, serviceZero };
  Kind kind = Kind::none;
  double bound = 0;
};

struct Figure {
  std::string name;
  std::string unit;
  std::optional<double> service;
  std::optional<double> floor;
  std::optional<double> ratio;
  Target target;

  std::string targetText() const;
  // "ok", "short", or "-" where nothing has to be reached.
  std::string verdict() const;
};

class Report {
 public:
  void add(const std::string& name, const std::string& unit, const Pairs& pairs, Target target);
  void addService(const std::string& name, const std::string& unit, double value, Target target);
  void addFloor(const std::string& name, const std::string& unit, double value);
  void note(const std::string& text) { notes_.push_back(text); }

  void printTable(std::ostream& out) const;
  void writeJson(std::ostream& out) const;

 private:
  std::vector<Figure> figures_;
  std::vector<std::string> notes_;
};

}  // namespace velotide::bench
