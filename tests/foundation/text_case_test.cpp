// Names compared ignoring case, beyond ASCII.

#include <gtest/gtest.h>

#include "foundation/text_case.h"

namespace halyard {
namespace {

TEST(EqualIgnoringCase, FoldsEveryAlphabetAndKeepsOtherBytesExact) {
  struct Case {
    const char* what;
    const char* a;
    const char* b;
    bool equal;
  } cases[] = {
      {"ascii", "Backup", "BACKUP", true},
      {"accented latin", "Donn\u00e9es", "DONN\u00c9ES", true},
      {"cyrillic", "\u0430\u0440\u0445\u0438\u0432", "\u0410\u0420\u0425\u0418\u0412", true},
      {"greek", "\u03b4\u03b9\u03c3\u03ba\u03bf\u03c2", "\u0394\u0399\u03a3\u039a\u039f\u03c2", true},
      {"different letters", "Donn\u00e9es", "DONNEES", false},
      {"prefix only", "Backup", "Backup 2", false},
      {"invalid bytes must match exactly", "a\xff", "A\xff", true},
      {"invalid byte against a letter", "a\xff", "a\xfe", false},
      {"truncated sequence", "caf\xc3", "CAF\xc3", true},
      {"empty", "", "", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(equalIgnoringCase(c.a, c.b), c.equal);
    EXPECT_EQ(equalIgnoringCase(c.b, c.a), c.equal);
  }
}

}  // namespace
}  // namespace halyard
