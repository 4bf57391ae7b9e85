// What a `play` run writes, so that a failed run can take it back: the
// files its writers create or replace, and the folder it made for them.
// Only plain files are ever removed; a device, a FIFO or a link named as
// the output is the user's and stays as it is.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

class COutputFiles {
 public:
  // Before the folder is made: whether the run makes it.
  void NoteFolder(const std::filesystem::path& dir);
  // Before the graph runs: one writer's file, and whether it is there yet.
  void Add(const std::filesystem::path& file);
  // The graph was told to run: the writers have created their files, and
  // with `allOpened`, each has replaced what was there before.
  void Started(bool allOpened) {
    m_Started = true;
    m_AllOpened = allOpened;
  }

  // Bytes in the plain files the run wrote.
  std::uintmax_t Bytes() const;
  // Removes every file the run wrote, and the folder if it made it and
  // nothing else is in it. "; removed A and B", or "" when nothing was.
  std::string RemoveAll();
  // Removes only the files that hold nothing: "; removed the empty A".
  std::string RemoveEmpty();
  // The files kept, "A and B", for the line that says so.
  std::string Kept() const;

 private:
  struct File {
    std::filesystem::path path;
    bool existed = false;   // anything at all stood there
    bool replaced = false;  // a plain file, which the writer truncates
  };
  bool Ours(const File& file) const;
  std::string Remove(bool emptyOnly);

  std::vector<File> m_Files;
  std::filesystem::path m_Folder;  // empty unless the run made it
  bool m_Started = false;
  bool m_AllOpened = false;
};

// "a", "a and b", "a, b and c".
std::string JoinNames(const std::vector<std::string>& names);
