#include "classify/report.h"

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>

namespace orvo {
namespace classify {

namespace {

using Json = nlohmann::ordered_json;

char const* const status_names[3] = {"A", "B", "mixed"};

// The names on one line; a long list shows its ends and its length.
std::string joined(std::vector<std::string> const& names, std::size_t count) {
  if (names.empty()) return "-";
  std::string out;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (!out.empty()) out += ' ';
    if (names.size() > 12 && i == 5) i = names.size() - 4;
    if (count > 12 && i == 5) out += "... ";
    out += names[i];
  }
  if (count > 12) out += " (" + std::to_string(count) + ")";
  return out;
}

Json document(ProblemReport const& report) {
  Json groups = Json::array();
  for (GroupReport const& g : report.groups)
    groups.push_back(
        Json{{"name", g.name}, {"atoms", g.atoms}, {"clauses", g.clauses}, {"symbols", g.symbols}});
  Json queries = Json::array();
  for (QueryReport const& q : report.queries) {
    Json partitions = Json::array();
    for (PartitionReport const& p : q.partitions)
      partitions.push_back(
          Json{{"node", p.node},
               {"A", p.A},
               {"A_symbols", p.A_symbols},
               {"B_symbols", p.B_symbols},
               {"common", p.common},
               {"atoms", Json{{"A", p.atoms.A}, {"B", p.atoms.B}, {"mixed", p.atoms.mixed}}}});
    queries.push_back(Json{{"line", q.line}, {"partitions", std::move(partitions)}});
  }
  return Json{
      {"file", report.file}, {"groups", std::move(groups)}, {"queries", std::move(queries)}};
}

}  // namespace

void write_text(std::ostream& out, ProblemReport const& report, Options const& options) {
  out << report.file << ": " << report.groups.size() << " groups, " << report.queries.size()
      << (report.queries.size() == 1 ? " query\n" : " queries\n");
  if (options.groups)
    for (std::size_t g = 0; g < report.groups.size(); ++g) {
      GroupReport const& r = report.groups[g];
      out << "  group " << g << " " << r.name << ": " << r.atoms << " atoms, " << r.clauses
          << " clauses; symbols " << joined(r.symbols, r.symbols.size()) << "\n";
    }
  for (QueryReport const& q : report.queries) {
    out << "\nquery at line " << q.line << ": " << q.partitions.size()
        << (q.partitions.size() == 1 ? " partition\n" : " partitions\n");
    for (PartitionReport const& p : q.partitions) {
      out << "  " << p.node << "\n"
          << "    A groups: " << joined(p.A, p.A_count) << "\n"
          << "    common:   " << joined(p.common, p.common.size()) << "\n"
          << "    atoms:    " << p.atoms.A << " A, " << p.atoms.B << " B, " << p.atoms.mixed
          << " mixed\n";
      for (AtomStatus const& a : p.atom_list)
        out << "      " << status_names[a.status] << (a.status == 2 ? " " : "     ") << a.text
            << "\n";
      if (options.dump) out << p.dump;
    }
  }
}

void write_json(std::ostream& out, std::vector<ProblemReport> const& reports) {
  Json doc;
  if (reports.size() == 1) {
    doc = document(reports.front());
  } else {
    doc = Json::array();
    for (ProblemReport const& r : reports)
      doc.push_back(document(r));
  }
  out << doc.dump(1) << "\n";
}

}  // namespace classify
}  // namespace orvo
