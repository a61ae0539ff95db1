#include "fileservices/host_identity.h"

#include <cstdio>

namespace halyard::fileservices {

namespace {

std::optional<std::string> nonEmpty(std::optional<std::string> text) {
  if (text && text->empty()) return std::nullopt;
  return text;
}

std::optional<std::string> formatAddress(const std::optional<std::array<std::uint8_t, 6>>& mac) {
  if (!mac) return std::nullopt;
  const auto& m = *mac;
  char text[13];
  std::snprintf(text, sizeof text, "%02X%02X%02X%02X%02X%02X", m[0], m[1], m[2], m[3], m[4], m[5]);
  return std::string(text);
}

}  // namespace

std::string hostNameFrom(const HostIdentitySource& source) {
  // Volume comparisons use this text as the machine's identity, so the order
  // of the fallbacks must never change.
  if (auto name = nonEmpty(source.computerName())) return *name;
  if (auto serial = nonEmpty(source.platformSerialNumber())) return *serial;
  if (auto mac = formatAddress(source.primaryEthernetAddress())) return *mac;
  if (auto host = nonEmpty(source.processHostName())) return *host;
  return "local";
}

}  // namespace halyard::fileservices
