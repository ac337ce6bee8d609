// lenslark-run - starts any program with the Lenslark cameras:
//
//   lenslark-run [--feed FILE | --device KEY] [--] COMMAND...
//
// The command keeps this process: its number, its standard streams and its exit status are what
// they would be without. Status 125: not started, 126: cannot be executed, 127: not found.

#include <ctype.h>
#include <dirent.h>
#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

enum { notStarted = 125, notExecutable = 126, notFound = 127 };

static const char libraryName[] = "LenslarkEmuInject.so";

static const char usage[] =
    "Usage: lenslark-run [--feed FILE | --device KEY] [--] COMMAND...\n"
    "\n"
    "Starts COMMAND with the cameras \"Lenslark Camera\" and \"Lenslark Camera (Front)\".\n"
    "\n"
    "  --feed FILE    show this frame file\n"
    "  --device KEY   show the cameras of a device: ios:UDID, or android:NAME of a running\n"
    "                 emulator\n"
    "\n"
    "Without either, the file that LENSLARK_SHM names is shown, else /tmp/lenslark.shm.\n";

__attribute__((noreturn, format(printf, 2, 3))) static void fail(int status, const char* format,
                                                                 ...) {
  va_list arguments;
  va_start(arguments, format);
  fputs("error: ", stderr);
  vfprintf(stderr, format, arguments);
  fputc('\n', stderr);
  va_end(arguments);
  exit(status);
}

__attribute__((format(printf, 2, 3))) static void print(char into[static PATH_MAX],
                                                        const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(into, PATH_MAX, format, arguments);
  va_end(arguments);
  if (length < 0 || length >= PATH_MAX) fail(notStarted, "a path is too long");
}

static bool isFile(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

// The library lies beside this program in a build tree and in an unpacked copy, and in the
// library directory of an installation.
static void findLibrary(char into[static PATH_MAX]) {
  const char* chosen = getenv("LENSLARK_EMU_INJECT_DYLIB");
  if (chosen && isFile(chosen) && realpath(chosen, into)) return;
  char directory[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", directory, sizeof(directory) - 1);
  if (length <= 0) fail(notStarted, "cannot tell where lenslark-run lies: is /proc mounted?");
  directory[length] = '\0';
  *strrchr(directory, '/') = '\0';
  const char* const places[] = {"",
                                ("/../" LENSLARK_LIBRARY_DIRECTORY),
                                "/../lib/lenslark",
                                "/..",
                                "/build",
                                "/../build",
                                "/../../build"};
  for (size_t i = 0; i < sizeof(places) / sizeof(places[0]); ++i) {
    char path[PATH_MAX];
    print(path, "%s%s/%s", directory, places[i], libraryName);
    if (isFile(path) && realpath(path, into)) return;
  }
  fail(notStarted, "%s not found near %s. Run scripts/build-injector.sh or install Lenslark.",
       libraryName, directory);
}

// The name after -avd if these are the arguments of an emulator's engine, else NULL.
static const char* avdOf(const char* arguments, size_t length) {
  const char* const end = arguments + length;
  if (!memmem(arguments, strnlen(arguments, length), "qemu-system", 11)) return NULL;
  for (const char* word = arguments; word < end; word += strnlen(word, (size_t)(end - word)) + 1) {
    const char* next = word + strnlen(word, (size_t)(end - word)) + 1;
    if (strcmp(word, "-avd") == 0 && next < end) return next;
  }
  return NULL;
}

static size_t readWhole(const char* path, char* into, size_t size) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return 0;
  size_t length = 0;
  ssize_t got = 0;
  while (length + 1 < size && (got = read(file, into + length, size - 1 - length)) > 0) {
    length += (size_t)got;
  }
  close(file);
  into[length] = '\0';
  return length;
}

// The process of a running emulator, 0 if there is none.
static long emulatorOf(const char* avd) {
  static char arguments[65536];
  long found = 0;
  DIR* processes = opendir("/proc");
  const struct dirent* entry;
  while (processes && !found && (entry = readdir(processes))) {
    if (!isdigit((unsigned char)entry->d_name[0])) continue;
    char path[PATH_MAX];
    print(path, "/proc/%s/cmdline", entry->d_name);
    const size_t length = readWhole(path, arguments, sizeof(arguments));
    const char* name = length ? avdOf(arguments, length) : NULL;
    if (name && strcmp(name, avd) == 0) found = strtol(entry->d_name, NULL, 10);
  }
  if (processes) closedir(processes);
  return found;
}

static void chooseDevice(const char* key) {
  char stem[PATH_MAX];
  const char* id = strchr(key, ':');
  if (id) ++id;
  if (id && *id && !strchr(id, '/') && strncmp(key, "ios:", 4) == 0) {
    print(stem, "/tmp/lenslark-sim-%s", id);
  } else if (id && *id && strncmp(key, "android:", 8) == 0) {
    const long process = emulatorOf(id);
    if (!process) {
      fail(notStarted, "no emulator of \"%s\" is running. Start it, then try again.", id);
    }
    print(stem, "/tmp/lenslark-pid-%ld", process);
  } else {
    fail(notStarted, "bad device key %s: write ios:UDID or android:NAME", key);
  }
  setenv("LENSLARK_DEVICE_FEED", stem, 1);
}

static void chooseFeed(const char* file) {
  // The command may change its directory.
  char path[PATH_MAX];
  char here[PATH_MAX];
  if (file[0] == '/' || !getcwd(here, sizeof(here))) {
    print(path, "%s", file);
  } else {
    print(path, "%s/%s", here, file);
  }
  setenv("LENSLARK_SHM", path, 1);
  unsetenv("LENSLARK_DEVICE_FEED");
}

// The file that the command names, as execvp() would find it.
static void findCommand(const char* command, char into[static PATH_MAX]) {
  if (strchr(command, '/')) {
    print(into, "%s", command);
    if (access(into, F_OK) == 0) return;
    fail(notFound, "%s: %s", command, strerror(errno));
  }
  const char* path = getenv("PATH");
  if (!path) path = "/usr/local/bin:/usr/bin:/bin";
  while (*path) {
    const int length = (int)strcspn(path, ":");
    print(into, "%.*s/%s", length ? length : 1, length ? path : ".", command);
    if (isFile(into) && access(into, X_OK) == 0) return;
    path += length;
    if (*path == ':') ++path;
  }
  fail(notFound, "%s: command not found", command);
}

// The last part of a path.
static const char* baseOf(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash ? slash + 1 : path;
}

static bool startsAsOther(const char* name) {
  static const char* const names[] = {"sudo", "su", "doas", "pkexec"};
  for (size_t i = 0; i < sizeof(names) / sizeof(names[0]); ++i) {
    if (strcmp(name, names[i]) == 0) return true;
  }
  return false;
}

// Programs that gain rights when they start ignore what is preloaded.
static void refusePrivileged(const char* path) {
  struct stat status;
  if (stat(path, &status) != 0) fail(notFound, "%s: %s", path, strerror(errno));
  const bool otherUser = (status.st_mode & S_ISUID) && status.st_uid != geteuid();
  const bool otherGroup = (status.st_mode & S_ISGID) && status.st_gid != getegid();
  const bool capable = geteuid() != 0 && getxattr(path, "security.capability", NULL, 0) > 0;
  if (!otherUser && !otherGroup && !capable) return;
  const char* name = baseOf(path);
  if (startsAsOther(name)) {
    fail(notStarted,
         "%s keeps preloaded libraries out of what it starts. Start lenslark-run with it instead, "
         "and have lenslark run as the same user, since a feed is shown to its owner only: "
         "%s ... lenslark-run COMMAND",
         path, name);
  }
  fail(notStarted,
       "%s runs with rights of its own (setuid, setgid or capabilities), and the system keeps "
       "preloaded libraries out of such programs. Run a copy without them: cp %s ~/ && "
       "lenslark-run ~/%s",
       path, path, name);
}

// The program that a script's first line names, or NULL if this is the start of none.
static const char* interpreterOf(char* start) {
  if (strncmp(start, "#!", 2) != 0) return NULL;
  char* name = start + 2 + strspn(start + 2, " \t");
  name[strcspn(name, " \t\n")] = '\0';
  return *name ? name : NULL;
}

static bool readHeader(int file, Elf64_Ehdr* into) {
  return pread(file, into, sizeof(*into), 0) == (ssize_t)sizeof(*into) &&
         memcmp(into->e_ident, ELFMAG, SELFMAG) == 0;
}

// The kind of processor that this program, and so the library, was built for. EM_NONE where that
// cannot be told.
static Elf64_Half ownMachine(void) {
  Elf64_Ehdr header = {.e_machine = EM_NONE};
  const int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  if (file >= 0 && !readHeader(file, &header)) header.e_machine = EM_NONE;
  if (file >= 0) close(file);
  return header.e_machine;
}

// Reads the name of the loader that a program asks for. False if it asks for none.
static bool readLoader(int file, const Elf64_Ehdr* header, char into[static PATH_MAX]) {
  for (unsigned i = 0; i < header->e_phnum; ++i) {
    Elf64_Phdr part;
    const off_t at = (off_t)(header->e_phoff + (Elf64_Off)i * header->e_phentsize);
    if (pread(file, &part, sizeof(part), at) != (ssize_t)sizeof(part)) return false;
    if (part.p_type != PT_INTERP) continue;
    const size_t size = part.p_filesz < PATH_MAX ? (size_t)part.p_filesz : PATH_MAX - 1;
    const ssize_t length = pread(file, into, size, (off_t)part.p_offset);
    into[length > 0 ? length : 0] = '\0';
    return true;
  }
  return false;
}

// Only a dynamically linked program of this machine's kind has a loader that preloads.
static void refuseUnloadable(const char* path, bool isInterpreter) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return;  // What may be executed but not read is taken on trust.
  Elf64_Ehdr header;
  if (!readHeader(file, &header)) {
    char start[256] = {0};  // What the kernel looks at.
    const bool isScript = pread(file, start, sizeof(start) - 1, 0) > 0;
    close(file);
    // A script is what its interpreter is.
    const char* interpreter = isScript ? interpreterOf(start) : NULL;
    if (interpreter && !isInterpreter) refuseUnloadable(interpreter, true);
    return;
  }
  if (header.e_ident[EI_CLASS] != ELFCLASS64) {
    fail(notStarted, "%s is a 32-bit program; the camera needs a 64-bit one.", path);
  }
  const Elf64_Half own = ownMachine();
  if (own != EM_NONE && header.e_machine != own) {
    fail(notStarted,
         "%s is a program for another kind of processor; the camera needs one for this machine's.",
         path);
  }
  char loader[PATH_MAX];
  const bool hasLoader = readLoader(file, &header, loader);
  close(file);
  if (!hasLoader) {
    fail(notStarted,
         "%s is statically linked, so nothing can be preloaded into it. Use a dynamically linked "
         "build of it.",
         path);
  }
  if (strncmp(baseOf(loader), "ld-musl", 7) == 0) {
    fail(notStarted,
         "%s uses the C library musl, into which nothing can be preloaded that was built for "
         "glibc. Use a glibc build of it.",
         path);
  }
}

static void preload(const char* library) {
  if (strpbrk(library, ": ")) {
    fail(notStarted, "%s: the loader cannot take a path with a colon or a space. Move it.",
         library);
  }
  const char* others = getenv("LD_PRELOAD");
  char* all = NULL;
  if (asprintf(&all, "%s%s%s", library, others && *others ? ":" : "", others ? others : "") < 0) {
    fail(notStarted, "out of memory");
  }
  setenv("LD_PRELOAD", all, 1);
  free(all);
}

int main(int count, char** arguments) {
  const char* feed = NULL;
  const char* device = NULL;
  int next = 1;
  for (; next < count && arguments[next][0] == '-'; ++next) {
    const char* option = arguments[next];
    if (strcmp(option, "--") == 0) {
      ++next;
      break;
    }
    if (strcmp(option, "--help") == 0 || strcmp(option, "-h") == 0) {
      fputs(usage, stdout);
      return 0;
    }
    const bool isFeed = strcmp(option, "--feed") == 0;
    if (!isFeed && strcmp(option, "--device") != 0) {
      fail(notStarted, "unknown option %s\n%s", option, usage);
    }
    if (++next >= count || !*arguments[next])
      fail(notStarted, "%s needs a value\n%s", option, usage);
    *(isFeed ? &feed : &device) = arguments[next];
  }
  if (next >= count) fail(notStarted, "no command given\n%s", usage);
  if (feed && device) fail(notStarted, "--feed and --device exclude each other\n%s", usage);

  char library[PATH_MAX];
  char command[PATH_MAX];
  findLibrary(library);
  findCommand(arguments[next], command);
  refusePrivileged(command);
  refuseUnloadable(command, false);
  if (feed) chooseFeed(feed);
  if (device) chooseDevice(device);
  preload(library);
  execv(command, arguments + next);
  if (errno == ENOEXEC) {
    // A script without an interpreter line, as a shell would run it.
    execvp(command, arguments + next);
  }
  fail(notExecutable, "%s: %s", command, strerror(errno));
}
