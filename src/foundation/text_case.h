#pragma once
// Comparing user-visible names (volume names) ignoring letter case, over all
// of Unicode rather than only ASCII letters: "Données" and "DONNÉES" name the
// same volume.

#include <string_view>

namespace halyard {

// True when the two UTF-8 texts are equal after simple case folding of each
// character. Bytes that are not UTF-8 must match exactly.
bool equalIgnoringCase(std::string_view a, std::string_view b);

}  // namespace halyard
