#include "foundation/object_view.h"

#include "foundation/archived_values.h"

namespace halyard {

ObjectView ObjectView::of(ObjectRef object) {
  ObjectView view;
  if (!object) return view;
  if (auto string = objectAs<String>(object)) {
    view.kind = Kind::String;
    view.isMutable = string->isMutable;
    view.text = string->text;
  } else if (auto number = objectAs<Number>(object)) {
    view.kind = Kind::Number;
    view.number = NumberValue{number->type, number->value};
  } else {
    view.kind = Kind::Object;
  }
  view.object = std::move(object);
  return view;
}

std::string ObjectView::className() const {
  if (object) return archivedClassName(object);
  switch (kind) {
    case Kind::String:
      return isMutable ? "NSMutableString" : "NSString";
    case Kind::Number:
      return "NSNumber";
    case Kind::Dictionary:
      return isMutable ? "NSMutableDictionary" : "NSDictionary";
    default:
      return "an unknown class";
  }
}

}  // namespace halyard
