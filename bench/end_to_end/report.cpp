#include "end_to_end/report.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <ostream>
#include <sstream>

#include "end_to_end/json_text.h"

namespace velotide::bench {
namespace {

constexpr int nameWidth = 46;
constexpr int columnWidth = 10;

std::string shortNumber(double value) {
  std::ostringstream text;
  text << std::fixed
       << std::setprecision(std::abs(value) >= 100  ? 0
                            : std::abs(value) >= 10 ? 1
                                                    : 2)
       << value;
  return text.str();
}

std::string cell(const std::optional<double>& value) { return value ? shortNumber(*value) : "-"; }

void writeNumber(std::ostream& out, const char* key, const std::optional<double>& value) {
  if (value) out << ",\"" << key << "\":" << *value;
}

}  // namespace

double median(std::vector<double> values) { return quantile(std::move(values), 0.5); }

double quantile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  const double position = share * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(position);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return std::lerp(values[below], values[above], position - static_cast<double>(below));
}

void Pairs::add(double serviceValue, double floorValue) {
  service.push_back(serviceValue);
  floor.push_back(floorValue);
}

double Pairs::ratio() const {
  std::vector<double> quotients;
  for (std::size_t index = 0; index < service.size(); ++index)
    quotients.push_back(service[index] / floor[index]);
  return median(quotients);
}

std::string Figure::targetText() const {
  switch (target.kind) {
    case Target::Kind::none:
      return "-";
    case Target::Kind::ratioAtLeast:
      return ">= " + shortNumber(target.bound) + " x";
    case Target::Kind::ratioAtMost:
      return "<= " + shortNumber(target.bound) + " x";
    case Target::Kind::serviceBelow:
      return "< " + shortNumber(target.bound);
    case Target::Kind::serviceAbove:
      return "> " + shortNumber(target.bound);
    case Target::Kind::serviceZero:
      return "0";
  }
  return {};
}

std::string Figure::verdict() const {
  const auto word = [](bool reached) { return reached ? "ok" : "short"; };
  switch (target.kind) {
    case Target::Kind::none:
      return "-";
    case Target::Kind::ratioAtLeast:
      return word(ratio.value() >= target.bound);
    case Target::Kind::ratioAtMost:
      return word(ratio.value() <= target.bound);
    case Target::Kind::serviceBelow:
      return word(service.value() < target.bound);
    case Target::Kind::serviceAbove:
      return word(service.value() > target.bound);
    case Target::Kind::serviceZero:
      return word(service.value() == 0);
  }
  return {};
}

void Report::add(const std::string& name, const std::string& unit, const Pairs& pairs, Target target) {
  figures_.push_back({name, unit, median(pairs.service), median(pairs.floor), pairs.ratio(), target});
}

void Report::addService(const std::string& name, const std::string& unit, double value, Target target) {
  figures_.push_back({name, unit, value, std::nullopt, std::nullopt, target});
}

void Report::addFloor(const std::string& name, const std::string& unit, double value) {
  figures_.push_back({name, unit, std::nullopt, value, std::nullopt, {}});
}

void Report::printTable(std::ostream& out) const {
  const auto row = [&out](const std::string& name, const std::vector<std::string>& cells) {
    out << std::left << std::setw(nameWidth) << name << std::right;
    for (const std::string& text : cells) out << std::setw(columnWidth) << text;
    out << "\n";
  };
  row("figure", {"unit", "service", "floor", "ratio", "target", ""});
  for (const Figure& figure : figures_) {
    row(figure.name, {figure.unit, cell(figure.service), cell(figure.floor), cell(figure.ratio),
                      figure.targetText(), figure.verdict()});
  }
  for (const std::string& text : notes_) out << "note: " << text << "\n";
}

void Report::writeJson(std::ostream& out) const {
  out << "{\"figures\":[";
  for (const Figure& figure : figures_) {
    out << (&figure == figures_.data() ? "" : ",") << "\n{\"figure\":" << jsonText(figure.name)
        << ",\"unit\":" << jsonText(figure.unit);
    writeNumber(out, "service", figure.service);
    writeNumber(out, "floor", figure.floor);
    writeNumber(out, "ratio", figure.ratio);
    out << ",\"target\":" << jsonText(figure.targetText()) << ",\"verdict\":" << jsonText(figure.verdict())
        << "}";
  }
  out << "],\n\"notes\":" << jsonList(notes_) << "}\n";
}

}  // namespace velotide::bench
