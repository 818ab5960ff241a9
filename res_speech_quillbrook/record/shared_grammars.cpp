#include "shared_grammars.h"

#include "../support/accents.h"
#include "../support/monotonic.h"
#include "../support/mutex.h"
#include "../support/text_file.h"
#include "jsgfkitxx.h"
#include "speech_state.h"

namespace {

// The kernel dates files by a clock that stands still for up to 10 ms.
constexpr int64_t kClockTick = 100;

struct FileIdentity {
  std::string path;
  struct stat status;
};
using Files = std::vector<FileIdentity>;

struct Compiled {
  Compiled(std::istream &in, const quillbrook::jsgf::ImportFolders &imports) : grammar(in, imports) {}

  const Grammar grammar;
  Files files;    // constant once it is shared
  int users = 0;  // guarded by the list's lock, as is the next
  int64_t unused_since = 0;
};

struct GrammarEntry {
  std::string path;
  bool without_accents = false;
  std::mutex compiling;                // one thread compiles the file. Taken before the list's lock
  std::shared_ptr<Compiled> compiled;  // written under both locks
};

// Searched from its begin: who has thousands of grammars at a time spends more on them than that.
using GrammarEntries = std::vector<std::shared_ptr<GrammarEntry>>;

// A leaf lock.
Mutex grammars_lock;
// Never destroyed: a PBX that ends without unloading its modules has threads that look at it.
GrammarEntries &all_grammars QUILLBROOK_GUARDED_BY(grammars_lock) = *new GrammarEntries();

bool same(const struct timespec &one, const struct timespec &other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

bool is_unchanged(const FileIdentity &file) {
  struct stat now = {};
  const struct stat &was = file.status;
  return stat(file.path.c_str(), &now) == 0 && now.st_dev == was.st_dev && now.st_ino == was.st_ino &&
         now.st_size == was.st_size && same(now.st_mtim, was.st_mtim) && same(now.st_ctim, was.st_ctim);
}

// False when it cannot be told whether the content that was read since `begun`, a moment of the wall clock in ms, is
// that of the file as it is now.
bool identify(const std::string &path, int64_t begun, Files &files) {
  FileIdentity file = {path, {}};
  if (stat(path.c_str(), &file.status)) {
    return false;
  }
  const struct timespec &changed = file.status.st_ctim;
  files.push_back(std::move(file));
  return int64_t{changed.tv_sec} * 1000 + changed.tv_nsec / 1000000 < begun - kClockTick;
}

bool identify_all(const std::string &filename, int64_t begun, Compiled &compiled) {
  bool known = identify(filename, begun, compiled.files);
  for (const std::string &path : compiled.grammar.getImportedFiles()) {
    known = known && identify(path, begun, compiled.files);
  }
  return known;
}

std::string read_file(const std::string &filename) {
  const std::unique_ptr<FILE, int (*)(FILE *)> file(open_regular_file(filename.c_str(), kGrammarFileMax), fclose);
  if (!file) {
    throw GrammarFileError(filename, errno);
  }
  std::string content;
  char block[16384];
  while (const size_t got = fread(block, 1, sizeof(block), file.get())) {
    content.append(block, got);
    if (content.size() > kGrammarFileMax) {  // it grows meanwhile
      throw GrammarFileError(filename, EFBIG);
    }
  }
  if (ferror(file.get())) {
    throw GrammarFileError(filename, errno);
  }
  return content;
}

std::string folder_of(const std::string &filename) {
  const size_t slash = filename.rfind('/');
  return slash == std::string::npos ? "." : filename.substr(0, slash + 1);
}

std::shared_ptr<Compiled> compile(const std::string &filename, bool without_accents) {
  const auto prepare = [without_accents](const std::string &text) {
    return without_accents ? removeAccentsUTF8(text) : text;
  };
  std::istringstream content(prepare(read_file(filename)));
  return std::make_shared<Compiled>(
      content, quillbrook::jsgf::ImportFolders{folder_of(filename), {quillbrook::jsgf::kInstalledGrammars}, prepare});
}

void end_use(Compiled &compiled) {
  {
    MutexLock held(grammars_lock);
    if (--compiled.users > 0) {
      return;
    }
    compiled.unused_since = monotonic_ms();
  }
  quillbrook_watch_bell.ring();
}

// Where the pointer cannot be made, its deleter ends the use.
std::shared_ptr<const Grammar> use(const std::shared_ptr<Compiled> &compiled) {
  {
    MutexLock held(grammars_lock);
    ++compiled->users;
  }
  return {&compiled->grammar, [compiled](const Grammar *) { end_use(*compiled); }};
}

std::shared_ptr<GrammarEntry> grammar_entry_of(const std::string &path, bool without_accents) {
  MutexLock held(grammars_lock);
  for (const std::shared_ptr<GrammarEntry> &entry : all_grammars) {
    if (entry->path == path && entry->without_accents == without_accents) {
      return entry;
    }
  }
  auto entry = std::make_shared<GrammarEntry>();
  entry->path = path;
  entry->without_accents = without_accents;
  all_grammars.push_back(entry);
  return entry;
}

// Who holds the entry is about to use it.
bool is_unused(const std::shared_ptr<GrammarEntry> &entry) {
  return entry.use_count() == 1 && (!entry->compiled || entry->compiled->users == 0);
}

// Milliseconds for which an entry that nobody uses stays. One without a grammar, whose file did not load, goes at once.
int64_t time_left(const GrammarEntry &entry, int64_t now) {
  return entry.compiled ? entry.compiled->unused_since + kUnusedGrammarTime - now : 0;
}

}  // namespace

GrammarFileError::GrammarFileError(const std::string &filename, int error)
    : std::runtime_error("Erreur ouverture: " + filename), error_(error) {}

std::shared_ptr<const Grammar> quillbrook_shared_grammar(const std::string &filename, bool without_accents) {
  quillbrook_look_at_unused_grammars();
  const std::shared_ptr<GrammarEntry> entry = grammar_entry_of(filename, without_accents);
  const std::lock_guard<std::mutex> compiling(entry->compiling);
  if (entry->compiled && std::all_of(entry->compiled->files.begin(), entry->compiled->files.end(), is_unchanged)) {
    return use(entry->compiled);
  }
  const struct timeval now = ast_tvnow();
  std::shared_ptr<Compiled> compiled = compile(filename, without_accents);
  if (!identify_all(filename, int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000, *compiled)) {
    return {compiled, &compiled->grammar};
  }
  std::shared_ptr<const Grammar> grammar = use(compiled);
  MutexLock held(grammars_lock);
  entry->compiled.swap(compiled);
  return grammar;
}

int quillbrook_look_at_unused_grammars() {
  const int64_t now = monotonic_ms();
  GrammarEntries dropped;  // goes when the lock is free
  MutexLock held(grammars_lock);
  const auto unused = std::stable_partition(all_grammars.begin(), all_grammars.end(),
                                            [](const auto &entry) { return !is_unused(entry); });
  std::sort(unused, all_grammars.end(),
            [now](const auto &one, const auto &other) { return time_left(*one, now) > time_left(*other, now); });
  const auto is_over = [now](const auto &entry) { return time_left(*entry, now) <= 0; };
  auto first = std::find_if(unused, all_grammars.end(), is_over);
  if (static_cast<size_t>(first - unused) > kMostUnusedGrammars) {
    first = unused + kMostUnusedGrammars;
  }
  const int next = first == unused ? -1 : static_cast<int>(time_left(**(first - 1), now));
  dropped.assign(first, all_grammars.end());
  all_grammars.erase(first, all_grammars.end());
  return next;
}

size_t quillbrook_count_shared_grammars() {
  MutexLock held(grammars_lock);
  return all_grammars.size();
}

void quillbrook_forget_shared_grammars() {
  GrammarEntries dropped;
  MutexLock held(grammars_lock);
  dropped.swap(all_grammars);
}
