#include "orvo-itp-check/report.h"

#include <nlohmann/json.hpp>

#include <ostream>

#include "smtlib/names.h"

namespace orvo {
namespace check {

namespace {

using Json = nlohmann::ordered_json;

char const* rule_name(smtlib::Unmentioned rule) {
  switch (rule) {
    case smtlib::Unmentioned::root:
      return "root";
    case smtlib::Unmentioned::background:
      return "background";
    case smtlib::Unmentioned::error:
      return "error";
  }
  return "";
}

// At most `width` bytes of `text`, "..." marking a cut.
std::string shortened(std::string const& text, std::size_t width) {
  return text.size() <= width ? text : text.substr(0, width - 3) + "...";
}

std::string joined(std::vector<std::string> const& names) {
  std::string out;
  for (std::string const& n : names)
    out += (out.empty() ? "" : " ") + n;
  return out;
}

// What is wrong or undecided about an interpolant, on one line.
std::string findings(InterpolantReport const& r) {
  if (r.verdict == Verdict::unreadable) return r.reason;
  std::vector<std::string> parts;
  for (auto const& [name, list] :
       {std::pair{"A-local", &r.A_local}, {"B-local", &r.B_local}, {"foreign", &r.foreign}})
    if (!list->empty()) parts.push_back(std::string(name) + " " + joined(*list));
  Decision const& d = r.implication;
  if (d.outcome == Outcome::fails) {
    std::string values;
    for (auto const& [name, value] : d.counterexample) {
      if (!values.empty()) values += ", ";
      values.append(name).append(" = ").append(value);
    }
    parts.push_back("implication fails" + (values.empty() ? "" : ": " + shortened(values, 100)));
  } else if (d.outcome != Outcome::holds) {
    parts.push_back(std::string("implication ") + outcome_name(d.outcome) + ": " + d.reason);
  }
  if (r.craig)
    parts.push_back(std::string("Craig: A implies ") + outcome_name(r.A_implies) +
                    ", B inconsistent " + outcome_name(r.B_inconsistent));
  std::string out;
  for (std::string const& p : parts)
    out += (out.empty() ? "" : "; ") + p;
  return out;
}

Json interpolant_json(InterpolantReport const& r) {
  Json one{{"node", r.node},       {"verdict", verdict_name(r.verdict)},
           {"A_local", r.A_local}, {"B_local", r.B_local},
           {"foreign", r.foreign}, {"implication", outcome_name(r.implication.outcome)}};
  if (r.implication.outcome == Outcome::fails) {
    Json values = Json::object();
    for (auto const& [name, value] : r.implication.counterexample)
      values[name] = value;
    one["counterexample"] = std::move(values);
  }
  if (!r.reason.empty()) one["reason"] = r.reason;
  if (r.craig)
    one["craig"] = Json{{"A_implies", outcome_name(r.A_implies)},
                        {"B_inconsistent", outcome_name(r.B_inconsistent)}};
  if (r.verdict != Verdict::unreadable) {
    one["size"] = r.metrics.size;
    one["atoms"] = r.metrics.atoms;
    one["quantifiers"] = r.metrics.quantifiers;
  }
  one["symbols"] = r.symbols;
  return one;
}

Json document(ProblemReport const& report) {
  Json queries = Json::array();
  for (QueryReport const& q : report.queries) {
    Json one{{"line", q.line}, {"answer", answer_name(q.answer)}};
    if (q.answer == Answer::Kind::error || q.answer == Answer::Kind::count)
      one["message"] = q.message;
    if (q.answer == Answer::Kind::interpolants) {
      Json list = Json::array();
      for (InterpolantReport const& r : q.interpolants)
        list.push_back(interpolant_json(r));
      one["interpolants"] = std::move(list);
    }
    queries.push_back(std::move(one));
  }
  Summary const s = summarize(report);
  return Json{{"file", report.file},
              {"responses", report.responses},
              {"unmentioned", rule_name(report.unmentioned)},
              {"queries", std::move(queries)},
              {"summary", Json{{"valid", s.valid},
                               {"invalid", s.invalid},
                               {"unknown", s.unknown},
                               {"unreadable", s.unreadable},
                               {"unanswered", s.unanswered}}}};
}

}  // namespace

Summary summarize(ProblemReport const& report) {
  Summary s;
  for (QueryReport const& q : report.queries) {
    if (q.answer != Answer::Kind::interpolants) ++s.unanswered;
    for (InterpolantReport const& r : q.interpolants) {
      switch (r.verdict) {
        case Verdict::valid:
          ++s.valid;
          break;
        case Verdict::invalid:
          ++s.invalid;
          break;
        case Verdict::unknown:
          ++s.unknown;
          break;
        case Verdict::unreadable:
          ++s.unreadable;
          break;
      }
    }
  }
  return s;
}

int exit_status(ProblemReport const& report) {
  Summary const s = summarize(report);
  bool wrong_count = false;
  for (QueryReport const& q : report.queries)
    wrong_count = wrong_count || q.answer == Answer::Kind::count;
  if (s.invalid > 0 || s.unreadable > 0 || wrong_count) return 2;
  if (s.unknown > 0 || s.unanswered > 0) return 3;
  return 0;
}

void write_text(std::ostream& out, ProblemReport const& report) {
  out << report.file << " answered by " << report.responses << ": " << report.queries.size()
      << (report.queries.size() == 1 ? " query" : " queries")
      << " (unmentioned assertions: " << rule_name(report.unmentioned) << ")\n";
  for (QueryReport const& q : report.queries) {
    out << "query at line " << q.line << ": " << shortened(q.text, 100);
    if (q.answer != Answer::Kind::interpolants) {
      out << "\n  " << answer_name(q.answer) << " answer"
          << (q.message.empty() ? "" : ": " + shortened(q.message, 200)) << "\n";
      continue;
    }
    out << "\n";
    for (InterpolantReport const& r : q.interpolants) {
      std::string const why = findings(r);
      out << "  " << shortened(r.node, 60) << ": " << verdict_name(r.verdict);
      if (!why.empty()) out << ": " << why;
      if (r.verdict != Verdict::unreadable)
        out << " [size " << r.metrics.size << ", atoms " << r.metrics.atoms << ", quantifiers "
            << r.metrics.quantifiers << "]";
      out << "\n";
    }
  }
  Summary const s = summarize(report);
  out << "summary: " << s.valid << " valid, " << s.invalid << " invalid, " << s.unknown
      << " unknown, " << s.unreadable << " unreadable, " << s.unanswered << " unanswered\n";
}

void write_json(std::ostream& out, std::vector<JsonEntry> const& entries) {
  auto one = [](JsonEntry const& e) {
    return e.report != nullptr
               ? document(*e.report)
               : Json{{"file", e.file}, {"responses", e.responses}, {"error", e.error}};
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

}  // namespace check
}  // namespace orvo
