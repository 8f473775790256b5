#include "orvo-itp-classify/report.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <ostream>
#include <sstream>
#include <string>

#include "orvo-itp-classify/classify.h"
#include "smtlib/names.h"

namespace orvo {
namespace classify {

namespace {

using Json = nlohmann::ordered_json;

char const* const status_names[3] = {"A", "B", "mixed"};

// The names on one line; a list longer than 12 (`count` names, of which
// `names` may hold just the first five and the last four) shows its ends and
// its length.
std::string joined(std::vector<std::string> const& names, std::size_t count) {
  if (names.empty()) return "-";
  std::string out;
  std::size_t const n = names.size();
  for (std::size_t i = 0; i < n; ++i) {
    if (!out.empty()) out += ' ';
    if (count > 12 && i == 5) {
      out += "... ";
      i = n - 4;
    }
    out += names[i];
  }
  if (count > 12) out += " (" + std::to_string(count) + ")";
  return out;
}

std::string joined(std::vector<std::string> const& names) {
  return joined(names, names.size());
}

// At most `width` bytes of `text`, "..." marking a cut.
std::string shortened(std::string const& text, std::size_t width) {
  return text.size() <= width ? text : text.substr(0, width - 3) + "...";
}

std::vector<std::string> group_names(smtlib::Script const& script, std::vector<int> const& groups) {
  std::vector<std::string> out;
  out.reserve(groups.size());
  for (int g : groups)
    out.push_back(smtlib::printable_utf8(script.groups()[static_cast<std::size_t>(g)].name));
  return out;
}

Json document(ProblemReport const& report, Options const& options) {
  Json groups = Json::array();
  for (GroupReport const& g : report.groups)
    groups.push_back(
        Json{{"name", g.name}, {"atoms", g.atoms}, {"clauses", g.clauses}, {"symbols", g.symbols}});
  Json queries = Json::array();
  for (QueryReport const& q : report.queries) {
    Json partitions = Json::array();
    for (PartitionReport const& p : q.partitions) {
      Json one{{"node", p.node}, {"A", p.A}};
      if (report.background) one["background"] = p.background;
      one["A_symbols"] = p.A_symbols;
      one["B_symbols"] = p.B_symbols;
      one["common"] = p.common;
      one["atoms"] = Json{{"A", p.atoms.A}, {"B", p.atoms.B}, {"mixed", p.atoms.mixed}};
      if (options.atoms) {
        Json statuses = Json::array();
        for (AtomStatus const& a : p.atom_list)
          statuses.push_back(Json{{"atom", a.text}, {"status", status_names[a.status]}});
        one["atom_statuses"] = std::move(statuses);
      }
      partitions.push_back(std::move(one));
    }
    queries.push_back(Json{{"line", q.line}, {"partitions", std::move(partitions)}});
  }
  return Json{
      {"file", report.file}, {"groups", std::move(groups)}, {"queries", std::move(queries)}};
}

}  // namespace

QueryReport report_query(smtlib::Script const& script, smtlib::Query const& q,
                         std::vector<smtlib::PartitionAnswer> const& answers,
                         std::vector<int> const& held, std::vector<std::string> dumps) {
  QueryReport r;
  r.line = q.where.line;
  r.text = q.text;
  r.sequence = q.sequence;
  r.items = q.items.size();
  if (!q.items.empty()) r.root = q.items.back().text;
  std::vector<std::string> atom_texts;
  for (std::size_t k = 0; k < answers.size(); ++k) {
    smtlib::PartitionAnswer const& a = answers[k];
    PartitionReport p;
    p.node = q.items[a.item].text;
    p.A = group_names(script, a.A_groups);
    p.A_count = a.A_count;
    p.background = group_names(script, q.background);
    p.A_symbols = smtlib::symbol_names(a.A_symbols);
    p.B_symbols = smtlib::symbol_names(a.B_symbols);
    p.common = smtlib::symbol_names(a.common);
    p.A_local = a.A_local;
    p.B_local = a.B_local;
    p.atoms = a.atoms;
    if (!a.atom_status.empty() && atom_texts.empty())
      for (int atom : held) {
        std::string text = script.atom_text(atom);
        std::replace(text.begin(), text.end(), '\n', ' ');
        atom_texts.push_back(std::move(text));
      }
    for (std::size_t i = 0; i < a.atom_status.size(); ++i)
      p.atom_list.push_back(AtomStatus{atom_texts[i], a.atom_status[i]});
    if (k < dumps.size()) p.dump = std::move(dumps[k]);
    r.partitions.push_back(std::move(p));
  }
  r.partition_count = r.partitions.size();
  return r;
}

void report_groups(smtlib::Script const& script, ProblemReport& report, bool details) {
  report.group_count = script.groups().size();
  if (!details) return;
  auto const& groups = script.classifier().get_groups();
  for (std::size_t g = 0; g < script.groups().size(); ++g) {
    GroupReport r;
    r.name = smtlib::printable_utf8(script.groups()[g].name);
    r.atoms = groups[g].atoms.size();
    r.clauses = groups[g].clauses.size();
    std::vector<Symbol const*> symbols;
    for (auto const& entry : groups[g].symbols)
      if (!script.environment().term_manager->is_interpreted(entry.first))
        symbols.push_back(entry.first);
    r.symbols = smtlib::symbol_names(symbols);
    report.groups.push_back(std::move(r));
  }
}

namespace {

void write_partitions(std::ostream& out, std::vector<PartitionReport> const& partitions,
                      bool background, Options const& options) {
  for (PartitionReport const& p : partitions) {
    out << "  " << shortened(p.node, 100) << "\n"
        << "    A groups:   " << joined(p.A, p.A_count) << "\n";
    if (background) out << "    background: " << joined(p.background) << "\n";
    out << "    symbols:    " << p.A_local << " A-local, " << p.B_local << " B-local, "
        << p.common.size() << " common: " << joined(p.common) << "\n"
        << "    atoms:      " << p.atoms.A << " A, " << p.atoms.B << " B, " << p.atoms.mixed
        << " mixed\n";
    for (AtomStatus const& a : p.atom_list)
      out << "      " << status_names[a.status] << (a.status == 2 ? " " : "     ") << a.text
          << "\n";
    if (options.dump) out << p.dump;
  }
}

}  // namespace

void render_partitions(QueryReport& q, bool background, Options const& options) {
  std::ostringstream text;
  write_partitions(text, q.partitions, background, options);
  q.rendered += text.str();
  q.partitions = std::vector<PartitionReport>();
}

void write_text(std::ostream& out, ProblemReport const& report, Options const& options) {
  out << report.file << ": " << report.group_count << " groups, " << report.queries.size()
      << (report.queries.size() == 1 ? " query\n" : " queries\n");
  out << "atom status: A = A-pure (A's symbols only), B = B-pure (B's symbols only), mixed = "
         "both sides\n";
  if (options.groups)
    for (std::size_t g = 0; g < report.groups.size(); ++g) {
      GroupReport const& r = report.groups[g];
      out << "  group " << g << " " << r.name << ": " << r.atoms << " atoms, " << r.clauses
          << " clauses; symbols " << joined(r.symbols) << "\n";
    }
  for (QueryReport const& q : report.queries) {
    out << "\nquery at line " << q.line << ": " << shortened(q.text, 100) << "\n  "
        << (q.sequence ? "sequence" : "tree") << " of " << q.items << " items, root "
        << shortened(q.root, 60) << "; " << q.partition_count
        << (q.partition_count == 1 ? " partition\n" : " partitions\n");
    out << q.rendered;
    write_partitions(out, q.partitions, report.background, options);
  }
}

void write_json(std::ostream& out, std::vector<JsonEntry> const& entries, Options const& options) {
  auto one = [&](JsonEntry const& e) {
    return e.report != nullptr ? document(*e.report, options)
                               : Json{{"file", e.file}, {"error", e.error}};
  };
  Json doc;
  if (entries.size() == 1) {
    doc = one(entries.front());
  } else {
    doc = Json::array();
    for (JsonEntry const& e : entries)
      doc.push_back(one(e));
  }
  out << doc.dump(1, ' ', false, Json::error_handler_t::replace) << "\n";
}

}  // namespace classify
}  // namespace orvo
