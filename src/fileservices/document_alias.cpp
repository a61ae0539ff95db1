#include "fileservices/document_alias.h"

#include "foundation/archiver.h"
#include "foundation/unarchiver.h"

namespace halyard::fileservices {
namespace {

// A relative path from an alias must stay below its volume's mount point.
bool staysBelow(const std::string& relative) {
  if (relative.empty() || relative[0] == '/') return false;
  std::size_t start = 0;
  while (start <= relative.size()) {
    const std::size_t end = std::min(relative.find('/', start), relative.size());
    if (relative.compare(start, end - start, "..") == 0 && end - start == 2) return false;
    start = end + 1;
  }
  return true;
}

std::optional<std::string> textOf(const Dictionary& alias, std::string_view key) {
  auto text = objectAs<String>(alias.get(key));
  if (!text) return std::nullopt;
  return text->text;
}

std::optional<std::string> findOnVolume(const Dictionary& alias, const AliasFileSystem& fileSystem) {
  auto uuid = textOf(alias, "volumeUUID");
  auto relative = textOf(alias, "relativePath");
  if (!uuid || !relative || uuid->empty() || uuid->find('/') != std::string::npos || *uuid == "." || *uuid == ".." ||
      !staysBelow(*relative)) {
    return std::nullopt;
  }
  auto path = fileSystem.pathOnVolume(*uuid, *relative);
  if (!path || !fileSystem.inodeOf(*path)) return std::nullopt;
  return path;
}

}  // namespace

std::shared_ptr<Data> createAliasObjectFromNSPath(const std::string& path, const AliasFileSystem& fileSystem) {
  if (path.empty() || path[0] != '/') return nullptr;
  auto inode = fileSystem.inodeOf(path);
  if (!inode) return nullptr;
  auto volume = fileSystem.volumeOf(path);
  const std::string relative = volume ? volume->relativePath : path.substr(1);
  auto alias = Dictionary::make();
  alias->set("path", String::make(path));
  if (volume && volume->uuid) alias->set("volumeUUID", String::make(*volume->uuid));
  alias->set("relativePath", String::make(relative));
  alias->set("inode", Number::fromInt64(static_cast<std::int64_t>(*inode)));
  return Data::make(Archiver::archivedData(alias));
}

std::optional<std::string> getNSPathFromAliasObject(const std::shared_ptr<Data>& alias, bool /*passively*/,
                                                    const AliasFileSystem& fileSystem) {
  if (!alias) return std::nullopt;
  auto root = Unarchiver::unarchiveRootObject(alias->bytes);
  if (!root) return std::nullopt;
  auto dictionary = objectAs<Dictionary>(*root);
  if (!dictionary) return std::nullopt;
  if (auto onVolume = findOnVolume(*dictionary, fileSystem)) return onVolume;
  auto path = textOf(*dictionary, "path");
  if (!path || path->empty() || (*path)[0] != '/' || !fileSystem.inodeOf(*path)) return std::nullopt;
  return path;
}

}  // namespace halyard::fileservices
