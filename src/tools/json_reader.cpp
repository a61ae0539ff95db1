#include "tools/json_reader.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace halyard::tools {
namespace {

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  Expected<JsonValue> document() {
    JsonValue value;
    if (auto parsed = parseValue(value, 0); !parsed) return parsed.error();
    skipSpace();
    if (at_ != text_.size()) return error("text after the JSON value");
    return value;
  }

 private:
  Error error(const std::string& what) const { return makeError("not JSON: " + what, at_); }

  void skipSpace() {
    while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\n' || text_[at_] == '\r'))
      ++at_;
  }

  bool take(std::string_view word) {
    if (text_.substr(at_, word.size()) != word) return false;
    at_ += word.size();
    return true;
  }

  Status parseValue(JsonValue& value, int depth) {
    skipSpace();
    if (at_ >= text_.size()) return error("unexpected end");
    const char c = text_[at_];
    if (c == '{' || c == '[') {
      if (depth >= kMaxJsonDepth) return error("nesting deeper than " + std::to_string(kMaxJsonDepth));
      return c == '{' ? parseObject(value, depth + 1) : parseArray(value, depth + 1);
    }
    if (c == '"') {
      value.kind = JsonValue::Kind::String;
      return parseString(value.text);
    }
    if (take("null")) return success();
    for (const bool truth : {true, false}) {
      if (!take(truth ? "true" : "false")) continue;
      value.kind = JsonValue::Kind::Boolean;
      value.boolean = truth;
      return success();
    }
    return parseNumber(value);
  }

  Status parseNumber(JsonValue& value) {
    const std::size_t begin = at_;
    while (at_ < text_.size() && std::string_view("+-0123456789.eE").find(text_[at_]) != std::string_view::npos) ++at_;
    const auto [end, ec] = std::from_chars(text_.data() + begin, text_.data() + at_, value.number);
    if (begin == at_ || ec != std::errc() || end != text_.data() + at_ || !std::isfinite(value.number)) {
      at_ = begin;
      return error("not a JSON value");
    }
    value.kind = JsonValue::Kind::Number;
    return success();
  }

  Status parseHex4(std::uint32_t& code) {
    if (text_.size() - at_ < 4) return error("short \\u escape");
    code = 0;
    for (int i = 0; i < 4; ++i) {
      const char h = text_[at_++];
      const int digit = h >= '0' && h <= '9'   ? h - '0'
                        : h >= 'a' && h <= 'f' ? h - 'a' + 10
                        : h >= 'A' && h <= 'F' ? h - 'A' + 10
                                               : -1;
      if (digit < 0) return error("bad \\u escape");
      code = code * 16 + static_cast<std::uint32_t>(digit);
    }
    return success();
  }

  static void appendUtf8(std::string& out, std::uint32_t code) {
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (code >> 18));
      out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }

  Status parseEscape(std::string& out) {
    if (at_ >= text_.size()) return error("unterminated string");
    const char e = text_[at_++];
    static constexpr std::string_view kFrom = "\"\\/bfnrt", kTo = "\"\\/\b\f\n\r\t";
    if (const auto i = kFrom.find(e); i != std::string_view::npos) {
      out += kTo[i];
      return success();
    }
    if (e != 'u') return error("bad escape");
    std::uint32_t code = 0;
    if (auto hex = parseHex4(code); !hex) return hex;
    if (code >= 0xD800 && code < 0xDC00) {
      std::uint32_t low = 0;
      if (!take("\\u")) return error("lone surrogate");
      if (auto hex = parseHex4(low); !hex) return hex;
      if (low < 0xDC00 || low >= 0xE000) return error("bad surrogate pair");
      code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
    } else if (code >= 0xDC00 && code < 0xE000) {
      return error("lone surrogate");
    }
    appendUtf8(out, code);
    return success();
  }

  Status parseString(std::string& out) {
    ++at_;  // the opening quote
    for (;;) {
      if (at_ >= text_.size()) return error("unterminated string");
      const char c = text_[at_++];
      if (c == '"') return success();
      if (static_cast<unsigned char>(c) < 0x20) return error("control character in a string");
      if (c != '\\') {
        out += c;
      } else if (auto escaped = parseEscape(out); !escaped) {
        return escaped;
      }
    }
  }

  template <class Element>
  Status parseSequence(char close, Element element) {
    ++at_;  // the opening bracket
    skipSpace();
    if (at_ < text_.size() && text_[at_] == close) {
      ++at_;
      return success();
    }
    for (;;) {
      if (auto parsed = element(); !parsed) return parsed;
      skipSpace();
      if (at_ < text_.size() && text_[at_] == ',') {
        ++at_;
        continue;
      }
      if (at_ < text_.size() && text_[at_] == close) {
        ++at_;
        return success();
      }
      return error(std::string("expected ',' or '") + close + "'");
    }
  }

  Status parseArray(JsonValue& value, int depth) {
    value.kind = JsonValue::Kind::Array;
    return parseSequence(']', [&]() -> Status {
      value.elements.emplace_back();
      return parseValue(value.elements.back(), depth);
    });
  }

  Status parseObject(JsonValue& value, int depth) {
    value.kind = JsonValue::Kind::Object;
    return parseSequence('}', [&]() -> Status {
      skipSpace();
      if (at_ >= text_.size() || text_[at_] != '"') return error("expected a member name");
      std::string name;
      if (auto parsed = parseString(name); !parsed) return parsed;
      skipSpace();
      if (!take(":")) return error("expected ':'");
      value.members.push_back(JsonMember{std::move(name), JsonValue{}});
      return parseValue(value.members.back().value, depth);
    });
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace

const JsonValue* JsonValue::member(std::string_view name) const {
  for (const auto& [key, value] : members) {
    if (key == name) return &value;
  }
  return nullptr;
}

Expected<JsonValue> parseJson(std::string_view text) { return Parser(text).document(); }

const char* describeKind(JsonValue::Kind kind) {
  switch (kind) {
    case JsonValue::Kind::Null:
      return "null";
    case JsonValue::Kind::Boolean:
      return "a boolean";
    case JsonValue::Kind::Number:
      return "a number";
    case JsonValue::Kind::String:
      return "a string";
    case JsonValue::Kind::Array:
      return "an array";
    case JsonValue::Kind::Object:
      return "an object";
  }
  return "a value";
}

}  // namespace halyard::tools
