#include "apps/brindlet/output_files.h"

namespace fs = std::filesystem;

namespace {

// A plain file, not through a link: the only kind the tool removes.
bool IsPlainFile(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(fs::symlink_status(path, error));
}

}  // namespace

std::string JoinNames(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? " and " : ", ";
    text += names[i];
  }
  return text;
}

void COutputFiles::NoteFolder(const fs::path& dir) {
  std::error_code error;
  if (!fs::exists(fs::symlink_status(dir, error))) m_Folder = dir;
}

void COutputFiles::Add(const fs::path& file) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(file, error);
  m_Files.push_back({file, fs::exists(status), fs::is_regular_file(status)});
}

bool COutputFiles::Ours(const File& file) const {
  if (!m_Started || !IsPlainFile(file.path)) return false;
  // A file that stood there before is the run's only once its writer has
  // truncated it; a graph that failed to start may not have got to it.
  return !file.existed || (file.replaced && m_AllOpened);
}

std::uintmax_t COutputFiles::Bytes() const {
  std::uintmax_t bytes = 0;
  for (const File& file : m_Files) {
    std::error_code error;
    const std::uintmax_t size = Ours(file) ? fs::file_size(file.path, error) : 0;
    if (!error) bytes += size;
  }
  return bytes;
}

std::string COutputFiles::Remove(bool emptyOnly) {
  std::vector<std::string> removed;
  for (const File& file : m_Files) {
    if (!Ours(file)) continue;
    std::error_code error;
    const std::uintmax_t size = fs::file_size(file.path, error);
    if (emptyOnly && (error || size != 0)) continue;
    if (fs::remove(file.path, error)) removed.push_back(file.path.string());
  }
  // The folder goes only with the last of what the run put in it.
  std::error_code error;
  if (!emptyOnly && !m_Folder.empty() && fs::is_empty(m_Folder, error) && fs::remove(m_Folder, error)) {
    removed.push_back(m_Folder.string());
  }
  if (removed.empty()) return {};
  return std::string("; removed ") + (emptyOnly ? "the empty " : "") + JoinNames(removed);
}

std::string COutputFiles::RemoveAll() { return Remove(false); }

std::string COutputFiles::RemoveEmpty() { return Remove(true); }

std::string COutputFiles::Kept() const {
  std::vector<std::string> kept;
  for (const File& file : m_Files) {
    if (Ours(file)) kept.push_back(file.path.string());
  }
  return JoinNames(kept);
}
