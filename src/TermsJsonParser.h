// Reads the terms menu titles that the terms service keeps in the
// configuration store as a JSON array of {"title": ...} objects.
#ifndef TERMS_JSON_PARSER_H
#define TERMS_JSON_PARSER_H

#include <string>

class CTermsJsonParser {
public:
    // The title at `index` of the array stored under `key`; empty on any failure.
    static std::string GetMenuTitleFromVconf(std::string key, int index);
};

#endif  // TERMS_JSON_PARSER_H
