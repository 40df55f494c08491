/* The disclaimer that the fake service describes in the C interface tests,
 * shared by the C scenarios (which check what they receive) and the test
 * program (which builds the service's reply). Members the reply leaves out
 * (button9, button10) reach C callers as null texts. */
#ifndef SAMPLE_DISCLAIMER_H
#define SAMPLE_DISCLAIMER_H

#define SAMPLE_ID "privacy-notice"
#define SAMPLE_ORDER 7
#define SAMPLE_VERSION "3.1"
#define SAMPLE_TITLE "Privacy Notice"
#define SAMPLE_INTRO "How the set uses what you watch"
#define SAMPLE_DETAIL_TITLE_0 "Scope"
#define SAMPLE_DETAIL_DATA_0 "Viewing history"
#define SAMPLE_DETAIL_DATA_1 "Kept for one year"
/* Two sections, the second without a title: four entries, the third null. */
#define SAMPLE_DETAILS                                                                                \
    "[{\"title\":\"" SAMPLE_DETAIL_TITLE_0 "\",\"data\":\"" SAMPLE_DETAIL_DATA_0 "\"},{\"data\":\"" \
    SAMPLE_DETAIL_DATA_1 "\"}]"
#define SAMPLE_DETAIL_ENTRIES 4
#define SAMPLE_BUTTON1 "Agree"
#define SAMPLE_BUTTON2 "Disagree"
#define SAMPLE_BUTTON3 "Details"
#define SAMPLE_BUTTON4 "Back"
#define SAMPLE_BUTTON5 "Next"
#define SAMPLE_BUTTON6 "Later"
#define SAMPLE_BUTTON7 "Help"
#define SAMPLE_BUTTON8 "Close"
#define SAMPLE_IS_AGREED 1
#define SAMPLE_ONLY_NOTICE 0
#define SAMPLE_AGREE_DEPENDENCY "terms-of-use"
#define SAMPLE_PP_USED 1
#define SAMPLE_REVERSE 0

#endif /* SAMPLE_DISCLAIMER_H */
