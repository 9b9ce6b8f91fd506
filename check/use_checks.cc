// What the template, the table and the parameters file say of one another.
#include "check/static_checks.h"

namespace {

void GivenByNobody(CheckState& s) {
  if (s.table_read && s.records > 0) {
    for (const auto& [field, use] : s.record_uses) {
      if (s.table_records.count(field) == 0) {
        s.Add(use.file, use.line, use.column, Severity::kWarning,
              "no record of the table gives $" + std::to_string(field) +
                  ": this stays blank (if \"$" + std::to_string(field) +
                  "\" is meant as text, it is not)",
              "field-not-given");
      }
    }
  }
  for (const auto& [field, use] : s.header_uses) {
    if (s.table_header.count(field) == 0 && s.params_header.count(field) == 0 &&
        s.template_header.count(field) == 0) {
      s.Add(use.file, use.line, use.column, Severity::kWarning,
            "nobody gives header field " + std::to_string(field) +
                " (not the table, not the parameters file, not a text in the "
                "template): this stays blank",
            "field-not-given");
    }
  }
}

void LateFields(CheckState& s) {
  for (int n = 2; n <= 3; ++n) {
    for (long field : s.section_records[n - 1]) {
      if (s.section_records[0].count(field) != 0 ||
          (s.table_read && s.table_records.count(field) == 0))
        continue;
      const Use& use = s.record_uses.at(field);
      if (use.section != n)
        continue;
      s.Add(use.file, use.line, use.column, Severity::kWarning,
            "only section " + std::to_string(n) + " uses $" +
                std::to_string(field) +
                ": formfill knows the field only once that section is "
                "loaded, and the records before lose its text",
            "late-field");
    }
  }
}

// Text after "&N" is header text: the load adds it to field N. Where the
// table or the parameters file gives the field, the words were most likely
// meant for the line, not for the value.
void HeaderWords(CheckState& s) {
  for (const auto& [field, where] : s.header_words) {
    if (s.table_header.count(field) == 0 && s.params_header.count(field) == 0)
      continue;
    const Use& use = where.first;
    s.Add(use.file, use.line, use.column, Severity::kWarning,
          "the text after &" + std::to_string(field) + " (\"" + where.second +
              "\") is header text: when formfill loads the template it adds "
              "it to the value the table gives &" + std::to_string(field) +
              "; for text on the line, close the stretch with \"?\" before it",
          "header-text");
  }
}

}  // namespace

void CheckUses(CheckState& state) {
  GivenByNobody(state);
  HeaderWords(state);
  LateFields(state);
  const Options& o = state.options;
  if (!state.section_exists[1] && state.page_marks > 0) {
    state.Add(NarrowBytes(SectionFile(o, 2)), 1, 1, Severity::kError,
              "the table has page marks but there is no section 2: at the "
              "first sheet to come formfill stops with " + FormfillMessage(11),
              "no-continuation");
    state.no_run = true;
  }
}
