#include "foundation/json_writer.h"

#include <charconv>
#include <cmath>

#include "foundation/values.h"

namespace halyard {
namespace {

// Appends text as a JSON string body; bytes that are not UTF-8 become U+FFFD.
void appendEscaped(std::string& out, std::string_view text) {
  static const char* hexDigits = "0123456789abcdef";
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c < 0x20 || c == 0x7f) {
      out += "\\u00";
      out += hexDigits[c >> 4];
      out += hexDigits[c & 15];
    } else if (c < 0x80) {
      out += static_cast<char>(c);
    } else {
      std::size_t length = c >= 0xf0 ? 4 : c >= 0xe0 ? 3 : c >= 0xc2 ? 2 : 0;
      bool valid = length > 0 && length <= 4 && c < 0xf5 && i + length <= text.size();
      for (std::size_t k = 1; valid && k < length; ++k)
        valid = (static_cast<unsigned char>(text[i + k]) & 0xc0) == 0x80;
      if (valid) {
        out.append(text.substr(i, length));
        i += length - 1;
      } else {
        out += "\xef\xbf\xbd";
      }
    }
  }
}

}  // namespace

void JsonWriter::newline() {
  out_ += '\n';
  out_.append(2 * hasItems_.size(), ' ');
}

void JsonWriter::separate() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (hasItems_.empty()) return;
  if (hasItems_.back()) out_ += ',';
  hasItems_.back() = true;
  newline();
}

void JsonWriter::beginObject() {
  separate();
  out_ += '{';
  hasItems_.push_back(false);
}

void JsonWriter::endObject() {
  const bool any = hasItems_.back();
  hasItems_.pop_back();
  if (any) newline();
  out_ += '}';
}

void JsonWriter::beginArray() {
  separate();
  out_ += '[';
  hasItems_.push_back(false);
}

void JsonWriter::endArray() { endObject(), out_.back() = ']'; }

JsonWriter& JsonWriter::key(std::string_view name) {
  separate();
  out_ += '"';
  appendEscaped(out_, name);
  out_ += "\": ";
  afterKey_ = true;
  return *this;
}

void JsonWriter::string(std::string_view text) {
  separate();
  out_ += '"';
  appendEscaped(out_, text);
  out_ += '"';
}

void JsonWriter::integer(std::int64_t v) {
  separate();
  out_ += std::to_string(v);
}

void JsonWriter::unsignedInteger(std::uint64_t v) {
  separate();
  out_ += std::to_string(v);
}

void JsonWriter::real(double v) {
  if (!std::isfinite(v)) {
    string(std::isnan(v) ? "nan" : v > 0 ? "inf" : "-inf");
    return;
  }
  separate();
  char buffer[64];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, v);
  out_.append(buffer, result.ptr);
}

void JsonWriter::boolean(bool v) {
  separate();
  out_ += v ? "true" : "false";
}

void JsonWriter::null() {
  separate();
  out_ += "null";
}

void JsonWriter::hex(std::string_view bytes) {
  static const char* hexDigits = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (char b : bytes) {
    text += hexDigits[static_cast<unsigned char>(b) >> 4];
    text += hexDigits[static_cast<unsigned char>(b) & 15];
  }
  string(text);
}

void JsonWriter::object(const ObjectRef& value) {
  if (auto cycle = objectAs<CycleReference>(value)) {
    auto target = cycle->target.lock();
    if (!target) {
      null();
      return;
    }
    return object(target);
  }
  if (!value) {
    null();
    return;
  }
  auto found = seen_.find(value.get());
  if (found != seen_.end()) {
    if (recording_) {
      shared_.insert(value.get());
    }
    beginObject();
    key("ref");
    integer(found->second);
    endObject();
    return;
  }
  const int id = static_cast<int>(seen_.size()) + 1;
  seen_.emplace(value.get(), id);
  beginObject();
  const ClassChain chain = value->archiveClassChain();
  key("class");
  string(chain.empty() ? "" : chain.front().name);
  if (shared_.count(value.get())) {
    key("id");
    integer(id);
  }
  value->writeJson(*this);
  endObject();
}

void JsonWriter::classChain(const ClassChain& chain) {
  beginArray();
  for (const ClassInfo& info : chain) {
    beginObject();
    key("name");
    string(info.name);
    key("version");
    integer(info.version);
    endObject();
  }
  endArray();
}

void JsonWriter::typedValue(const TypedValue& value) {
  const bool isByteArray = value.type.size() > 2 && value.type.front() == '[' &&
                           (value.type[value.type.size() - 2] == 'c' || value.type[value.type.size() - 2] == 'C');
  std::visit(
      [&](const auto& v) {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, Nil>) null();
        else if constexpr (std::is_same_v<T, std::int64_t>) integer(v);
        else if constexpr (std::is_same_v<T, std::uint64_t>) unsignedInteger(v);
        else if constexpr (std::is_same_v<T, double>) real(v);
        else if constexpr (std::is_same_v<T, std::string>) isByteArray ? hex(v) : string(v);
        else if constexpr (std::is_same_v<T, ObjectRef>) object(v);
        else if constexpr (std::is_same_v<T, ClassChain>) classChain(v);
        else {
          beginArray();
          for (const auto& item : v) typedValue(item);
          endArray();
        }
      },
      value.value);
}

void JsonWriter::groups(const std::vector<Group>& groups) {
  beginArray();
  for (const Group& group : groups) {
    beginObject();
    key("types");
    string(group.types);
    key("values");
    beginArray();
    for (const auto& value : group.values) typedValue(value);
    endArray();
    endObject();
  }
  endArray();
}

// Two passes: the first finds the objects that occur more than once, so
// that the second can give them an id where they first appear.
template <class Write>
std::string JsonWriter::describeWith(Write write) {
  JsonWriter recorder;
  recorder.recording_ = true;
  write(recorder);
  JsonWriter writer;
  writer.shared_ = std::move(recorder.shared_);
  write(writer);
  return writer.take();
}

std::string JsonWriter::describe(const ObjectRef& root) {
  return describeWith([&](JsonWriter& json) { json.object(root); });
}

std::string JsonWriter::describe(const std::vector<Group>& groupList) {
  return describeWith([&](JsonWriter& json) { json.groups(groupList); });
}

}  // namespace halyard
