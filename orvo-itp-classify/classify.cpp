#include "orvo-itp-classify/classify.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <sstream>

#include "smtlib/names.h"
#include "smtlib/partition.h"
#include "smtlib/script.h"

namespace orvo {
namespace classify {

namespace {

using smtlib::PartitionAnswer;
using smtlib::Query;
using smtlib::Script;
using smtlib::ScriptError;

// The same answers as the cut index's, from the classifier itself after
// choosing the partition; with `dump`, its debug dump.
PartitionAnswer by_classifier(Script& script, PartitionAnswer const& cut,
                              std::vector<int> const& background, std::vector<int> const& held,
                              std::string* dump) {
  itp::AtomClassifier& classifier = script.classifier();
  TermManager const& tm = *script.environment().term_manager;
  PartitionAnswer r;
  r.item = cut.item;
  r.A_groups = cut.A_groups;
  auto choose = [&](std::vector<int> A) {
    std::sort(A.begin(), A.end());
    if (!A.empty() && A.front() == 0 && A.back() == static_cast<int>(A.size()) - 1)
      classifier.set_frontier(A.back());
    else
      classifier.set_A_groups(A);
  };
  // Background groups are on both sides: A's symbols as the partition with
  // them in A gives them, B's as the partition with them in B does.
  if (!background.empty()) {
    std::vector<int> A = cut.A_groups;
    A.insert(A.end(), background.begin(), background.end());
    choose(A);
    for (Symbol const* s : classifier.get_A_symbols())
      if (!tm.is_interpreted(s)) r.A_symbols.push_back(s);
  }
  choose(cut.A_groups);
  auto const& B_set = classifier.get_B_symbols();
  if (background.empty())
    for (Symbol const* s : classifier.get_A_symbols())
      if (!tm.is_interpreted(s)) r.A_symbols.push_back(s);
  for (Symbol const* s : r.A_symbols)
    if (B_set.find(s) != B_set.end()) r.common.push_back(s);
  for (Symbol const* s : B_set)
    if (!tm.is_interpreted(s)) r.B_symbols.push_back(s);
  r.atoms = cut.atoms;  // the statuses mix both partitions: the index's stand
  r.atom_status = cut.atom_status;
  if (!background.empty()) return r;
  r.atoms = {};
  r.atom_status.clear();
  for (int a : held) {
    int const status =
        classifier.get_term_status(script.environment().atom_terms[static_cast<std::size_t>(a)]);
    (status == 0 ? r.atoms.A : status == 1 ? r.atoms.B : r.atoms.mixed) += 1;
    r.atom_status.push_back(static_cast<unsigned char>(status));
  }
  if (dump != nullptr) {
    std::ostringstream text;
    std::streambuf* const old = std::cout.rdbuf(text.rdbuf());
    try {
      classifier.debug_dump();
    } catch (...) {
      std::cout.rdbuf(old);
      throw;
    }
    std::cout.rdbuf(old);
    *dump = text.str();
  }
  return r;
}

// --check: the index must give exactly the classifier's answers.
void compare(PartitionAnswer const& index, PartitionAnswer const& classifier,
             smtlib::QueryItem const& item) {
  auto same = [](std::vector<Symbol const*> a, std::vector<Symbol const*> b) {
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    return a == b;
  };
  char const* field = !same(index.A_symbols, classifier.A_symbols)   ? "the A symbols"
                      : !same(index.B_symbols, classifier.B_symbols) ? "the B symbols"
                      : !same(index.common, classifier.common)       ? "the common symbols"
                      : index.A_local != classifier.A_symbols.size() - classifier.common.size()
                          ? "the number of A-local symbols"
                      : index.B_local != classifier.B_symbols.size() - classifier.common.size()
                          ? "the number of B-local symbols"
                      : index.atoms.A != classifier.atoms.A ||
                              index.atoms.B != classifier.atoms.B ||
                              index.atoms.mixed != classifier.atoms.mixed
                          ? "the atom counts"
                      : index.atom_status != classifier.atom_status ? "an atom's status"
                                                                    : nullptr;
  if (field != nullptr)
    throw ScriptError(item.where, std::string("the cut index and the classifier differ on ") +
                                      field + " of partition " + item.text);
}

}  // namespace

ProblemReport classify_problem(std::string const& path, std::string_view text,
                               Options const& options, std::ostream& warnings,
                               z3::context* shared) {
  ProblemReport report;
  std::size_t const slash = path.find_last_of('/');
  report.file = smtlib::printable_utf8(slash == std::string::npos ? path : path.substr(slash + 1));
  report.background = options.unmentioned == smtlib::Unmentioned::background;
  auto const setup_start = std::chrono::steady_clock::now();
  auto owned = std::make_unique<Script>(path, warnings, options.unmentioned, shared);
  report.setup_time = smtlib::seconds_since(setup_start);
  Script& script = *owned;
  script.run(text, [&](Query const& q) {
    auto const start = std::chrono::steady_clock::now();
    // The atoms the live groups hold are listed only where statuses are
    // given one by one; the counts come from the index.
    std::vector<int> const held =
        options.atoms || options.check || options.dump ? script.held_atoms() : std::vector<int>();
    itp::CutIndex index = script.cut_index(q);
    smtlib::AnswerOptions const wanted{options.json || options.check || options.dump,
                                       options.atoms || options.check};
    std::vector<PartitionAnswer> answers = smtlib::answer_query(script, q, index, held, wanted);
    std::vector<std::string> dumps;
    if (options.check || options.dump)
      for (PartitionAnswer const& a : answers) {
        dumps.emplace_back();
        PartitionAnswer const c =
            by_classifier(script, a, q.background, held, options.dump ? &dumps.back() : nullptr);
        if (options.check) compare(a, c, q.items[a.item]);
      }
    if (!options.atoms)
      for (PartitionAnswer& a : answers)
        a.atom_status.clear();
    report.partitions += answers.size();
    report.queries.push_back(report_query(script, q, answers, held, std::move(dumps)));
    if (options.text_only) render_partitions(report.queries.back(), report.background, options);
    report.queries_time += smtlib::seconds_since(start);
  });
  auto start = std::chrono::steady_clock::now();
  report_groups(script, report, !options.text_only || options.groups);
  report.groups_time = smtlib::seconds_since(start);
  report.timing = script.timing();
  start = std::chrono::steady_clock::now();
  owned.reset();
  report.teardown_time = smtlib::seconds_since(start);
  return report;
}

}  // namespace classify
}  // namespace orvo
