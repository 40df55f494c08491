// A small catalogue whose every detail the simulator tests rely on.
//   AA (default): base, child (needs base), note (notice only), extra; revised: child
//     requester 0: base, child; requester 1: extra, base; others: all four
//   BB: bb_only, base; header and titles of its own, web view header from the top
#ifndef TESTS_TOOLS_SIM_TEST_CATALOGUE_H
#define TESTS_TOOLS_SIM_TEST_CATALOGUE_H

namespace simtest {

inline const char kTestCatalogue[] = R"json({
  "default_country": "AA", "header": {"h": "top"}, "web_view_header": {"w": "top"}, "menu_titles": ["T1", "T2"],
  "disclaimers": {
    "base": {
      "version": "1.0", "title": "Base terms", "intro": "Read me", "buttons": ["Agree", "Disagree", "More"],
      "details": [{"title": "S1", "data": "D1"}, {"title": "S2", "data": "D2"}],
      "by_country": {"BB": {"title": "Grundlage – 기본", "version": "1.1"}}
    },
    "child": {"version": "2", "title": "Child", "details": "Plain prose.", "agree_dependency": "base"},
    "note": {"title": "Note", "only_notice": true, "buttons": ["Close"]},
    "extra": {"title": "Extra", "ppused": true, "reverse": true,
              "buttons": ["1", "2", "3", "4", "5", "6", "7", "8", "9", "10"]},
    "bb_only": {"title": "Überblick", "intro": "Résumé – 요약"}
  },
  "countries": {
    "AA": {
      "disclaimers": ["base", "child", "note", "extra"], "revised": ["child"],
      "requesters": {"0": ["base", "child"], "1": ["extra", "base"]},
      "header": {"h": "aa"}, "web_view_header": {"w": "aa"}, "menu_titles": ["A1", "A2"]
    },
    "BB": {"disclaimers": ["bb_only", "base"], "header": {"h": "bb"}, "menu_titles": ["Bé"]}
  }
})json";

}  // namespace simtest

#endif
