#pragma once
// ObjectView: one archived value as a coder that knows its shape reads it.
// Strings and numbers of an archive read this way are looked at where they
// lie in the archive's bytes, without making an object for each; anything
// else is the decoded object itself. Coders of classes archived as one
// dictionary (scheduled items) read their entries as views, which spares
// the dozens of objects a generic dictionary would make per item.

#include <string>
#include <string_view>

#include "foundation/values.h"

namespace halyard {

// The value of an archived NSNumber: its C type code and the value.
struct NumberValue {
  char type = 'i';
  Number::Storage value;
};

struct ObjectView {
  enum class Kind : std::uint8_t {
    Nil,         // absent
    String,      // `text`; `object` is the String when one was made
    Number,      // `number`; `object` is the Number when one was made
    Object,      // `object`, of any other class
    Dictionary,  // a dictionary whose entries went to the coder's visitor
  };

  Kind kind = Kind::Nil;
  bool isMutable = false;
  std::string_view text;
  NumberValue number;
  ObjectRef object;

  // The view of a decoded object: strings and numbers show their values.
  static ObjectView of(ObjectRef object);
  // The class the value archives as, for messages ("NSString").
  std::string className() const;
};

}  // namespace halyard
