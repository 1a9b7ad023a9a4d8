// Compares the strict copy with std::filesystem::copy: same error numbers, same trees, except for the listed
// differences. FILE_MIGRATE_COPY_CASES is the number of pairs of trees (300 by default), FILE_MIGRATE_COPY_SEED the
// number of the first one.
#include "copy_engine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "copy.h"
#include "raw_client.h"
#include "record_file.h"
#include "scratch_tree.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

/// @return 0 or an error number
int Ours(const std::string& src, const std::string& dst, const CopyOptions& options, CopyResult& result) {
    int err = 0;
    const Report report{err, RECORD_KIND_NONE};
    TopPath from(src), to(dst);
    Learned learned;
    CopyJob job{options, learned};
    const int refusal = CheckSlashes(from, to);
    return refusal != 0 ? refusal : CopyStrictly({from.AsEntry(), to.AsEntry(), /*isTop=*/true}, job, report, result);
}

/// Makes the source "s", the destination "d" and "out" beside them, all at random. The same seed makes the same trees.
/// One user owns all objects of a tree: a file of somebody else would be replaced (a listed difference). Every
/// directory can be entered by its owner: a new one is filled before it gets its mode (another one).
struct Generator {
    Generator(unsigned int seed, std::string directory)
        : random(seed), base(std::move(directory)), owner(seed % 3 == 0 ? 7 : 0), isLarge(seed % 7 == 0) {
        fs::create_directories(base + "/out");
        Object("out/a", 1);
        Object("s", 3);
        Object("d", 3);
        for (int i = 0; isLarge && i < 500; ++i) {
            const std::string at = "/m" + std::to_string(i % 50);
            (void)!mkdir(Path("s" + at).c_str(), 0700);
            Object("s" + at + "/" + std::to_string(i), 0, FILE_KIND);
            if (Chance(200)) {
                Object("d" + at, 2);
            }
        }
        src = Chance(4) ? Path(OneOf({"s/", "s/a", "s/.", "none", ""})) : Path("s");
        dst = Chance(3) ? Path(OneOf({"d/", "d/a", "none/d", "s", "s/a", "s/none", "out/", "out/a/", ""})) : Path("d");
    }

    unsigned int Below(unsigned int bound) { return static_cast<unsigned int>(random() % bound); }
    bool Chance(unsigned int outOf) { return Below(outOf) == 0; }
    std::string OneOf(const Strings& words) { return words[random() % words.size()]; }
    [[nodiscard]] std::string Path(const std::string& name) const { return name.empty() ? "" : base + "/" + name; }

    static constexpr unsigned int FILE_KIND = 8;
    void Object(const std::string& name, int depth, unsigned int firstKind = 0) {
        const std::string path = Path(name);
        const unsigned int kind = firstKind + Below(30);
        if (depth > 0 && Below(5) < (depth == 3 ? 3U : 2U)) {
            mkdir(path.c_str(), 0700);
            for (unsigned int count = Below(5); count > 0; --count) {
                Object(name + "/" + (Chance(9) ? std::string(255, 'n') : OneOf({"a", "b", "c"})), depth - 1);
            }
        } else if (kind < 3) {
            const std::string target = OneOf({"out", "s", "d", "s/a", "none", "out/a", "d/a"});
            (void)!symlink((depth == 3 ? target : "../" + target).c_str(), path.c_str());
        } else if (kind < 5) {
            mknod(path.c_str(), Chance(2) ? S_IFIFO : S_IFSOCK, 0);
        } else if (kind == 5) {
            (void)!link((base + OneOf({"/s/a", "/s/b", "/s", "/out/a"})).c_str(), path.c_str());
        } else if (kind >= FILE_KIND || depth != 3) {
            const UniqueFd fd(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
            const std::string content(Chance(3) ? 0 : Below(9000), static_cast<char>('a' + Below(26)));
            (void)!pwrite(fd.Get(), content.data(), content.size(), Chance(5) ? 70000 : 0);
        }
        (void)!lchown(path.c_str(), owner, Chance(4) ? 8 : 0);
        constexpr mode_t modes[] = {0644, 0644, 0755, 0700, 0755, 0600, 0666, 04755, 02711, 01777, 0555, 0300, 0};
        const mode_t mode = modes[Below(Chance(2) ? 5 : 13)];
        std::error_code ignored;
        const bool isDirectory = fs::is_directory(fs::symlink_status(path, ignored));
        (void)!fchmodat(AT_FDCWD, path.c_str(), mode | (isDirectory ? 0700 : 0), AT_SYMLINK_NOFOLLOW);
    }

    std::mt19937 random;
    const std::string base;
    const uid_t owner;
    const bool isLarge;  ///< so large that several threads copy it, if "s" is a directory
    std::string src, dst;
};

/// Everything in a tree, without set-id bits of files. @param apart  left out too, with files that have several names
std::set<std::string> Listing(const std::string& base, const std::string& apart = "") {
    std::set<std::string> lines;
    for (const auto& entry : fs::recursive_directory_iterator(base)) {
        const struct stat st = Lstat(entry.path());
        const bool isFile = S_ISREG(st.st_mode);
        if (!apart.empty() && (entry.path().string().starts_with(apart) || (isFile && st.st_nlink > 1))) {
            continue;
        }
        const std::string content = isFile ? ReadFile(entry.path()) : "";
        std::ostringstream line;
        line << entry.path().string().substr(base.size()) << ' ' << std::oct << (st.st_mode & ~(isFile ? 06000U : 0U))
             << ' ' << st.st_uid << ':' << st.st_gid << ' ' << content.size() << std::hash<std::string>()(content)
             << (S_ISLNK(st.st_mode) ? fs::read_symlink(entry).string() : "");
        lines.insert(line.str());
    }
    return lines;
}

fs::file_type TypeOf(const fs::path& path) {
    std::error_code ignored;
    return fs::symlink_status(path, ignored).type();
}

/// Listed difference: below the request's destination the library follows links; a link in the place of a directory, or
/// of a file that lands in a directory, is an error here.
bool MeetsLink(const fs::path& src, const fs::path& dst, bool isRequest) {
    using enum fs::file_type;
    const auto from = TypeOf(src), to = TypeOf(dst);
    if (from != directory) {
        return from == regular && to == directory && TypeOf(dst / src.filename()) == symlink;
    }
    bool meetsLink = to == symlink && !isRequest;
    for (const auto& child : fs::directory_iterator(src)) {
        meetsLink = meetsLink || MeetsLink(child.path(), dst / child.path().filename(), false);
    }
    return meetsLink;
}

/// Listed difference: the library also changes the other names of a file that it overwrites. Gives each such file a
/// single name beforehand.
void Unlink(const fs::path& src, const fs::path& dst) {
    using enum fs::file_type;
    std::error_code ignored;
    const fs::path target = fs::is_directory(dst, ignored) ? dst / src.filename() : dst;
    if (TypeOf(src) == directory) {
        for (const auto& child : fs::directory_iterator(src)) {
            Unlink(child, dst / child.path().filename());
        }
    } else if (TypeOf(src) == regular && TypeOf(target) == regular && !fs::equivalent(src, target)) {
        const struct stat st = Lstat(target);
        const fs::path single = target.parent_path() / "single";
        fs::copy_file(target, single);
        (void)!chown(single.c_str(), st.st_uid, st.st_gid);
        fs::permissions(single, fs::perms(st.st_mode & 07777));
        fs::rename(single, target);
    }
}

/// Listed difference: a directory onto itself or to a place inside it, where the library may nest, is an error here.
int OntoItself(const fs::path& src, const fs::path& dst) {
    std::error_code ignored;
    fs::path above = dst;
    while (above.has_relative_path() && !fs::is_directory(above, ignored)) {
        above = above.parent_path();
    }
    above = fs::canonical(above, ignored);
    while (above.has_relative_path() && !fs::equivalent(src, above, ignored)) {
        above = above.parent_path();
    }
    const int error = fs::equivalent(src, dst, ignored) ? EEXIST : EINVAL;
    return TypeOf(src) == fs::file_type::directory && above.has_relative_path() ? error : 0;
}

/// Listed difference: a path that ends in a slash must be a directory, and a link is not followed.
int RefusedSlash(const std::string& src, const std::string& dst) {
    for (const std::string& path : {src, dst}) {
        const fs::file_type type = TypeOf(path.ends_with('/') ? path.substr(0, path.length() - 1) : "/");
        if (type != fs::file_type::directory && type != fs::file_type::not_found) {
            return ENOTDIR;
        }
    }
    return 0;
}

unsigned int NumberFrom(const char* variable, unsigned int otherwise) {
    const char* text = std::getenv(variable);
    return text == nullptr ? otherwise : static_cast<unsigned int>(std::stoul(text));
}

TEST(CopyEngineTest, CopiesAsTheStandardLibrary) {
    const unsigned int first = NumberFrom("FILE_MIGRATE_COPY_SEED", 1),
                       count = NumberFrom("FILE_MIGRATE_COPY_CASES", 300);
    for (unsigned int at = first; at < first + count && !HasFailure(); ++at) {
        SCOPED_TRACE("FILE_MIGRATE_COPY_SEED=" + std::to_string(at));
        const ScratchTree tree(at % 2 == 0 ? ScratchTree::On::Data : ScratchTree::On::SecondFs);
        umask(0);
        const Generator ours(at, tree.Path("a")), theirs(at, tree.Path("b"));
        // A thread that helps with a large tree has the user of the thread that started it, perhaps for an earlier
        // copy.
        const bool isBelowRequest = at % 5 == 0, isRoot = ours.isLarge || at % 4 >= 2;
        const int slash = RefusedSlash(ours.src, ours.dst);
        const int ontoItself = slash != 0 ? slash : OntoItself(ours.src, ours.dst);
        const bool meetsLink = ontoItself == 0 && MeetsLink(ours.src, ours.dst, !isBelowRequest);
        if (ontoItself == 0 && !meetsLink) {
            Unlink(theirs.src, theirs.dst);
        }
        int result = 0;
        CopyResult copy;
        std::error_code ignored, expected(ontoItself, std::generic_category());
        umask(at % 3 == 0 ? 077 : 022);
        std::thread([&] {
            // Another user than root has no privileges either. The C library would change all threads.
            syscall(SYS_setresuid, -1, isRoot ? 0 : 7, -1);
            result = Ours(ours.src, ours.dst, {.topLink = isBelowRequest ? Link::Refuse : Link::Follow}, copy);
            if (ontoItself == 0 && !meetsLink) {
                using enum fs::copy_options;
                fs::copy(theirs.src, theirs.dst, overwrite_existing | recursive | skip_symlinks, expected);
            }
        }).join();
        umask(022);
        using enum fs::file_type;
        // An entry before the link may have failed already.
        const std::set<int> errors = meetsLink ? std::set{ENOTDIR, ELOOP, EINVAL, EISDIR} : std::set{expected.value()};
        const bool isHidden = !isRoot && (result == EACCES || result == ENOTDIR) && (ontoItself != 0 || meetsLink);
        // Listed differences without privileges: nothing is created for a directory that cannot be read. To replace a
        // file needs no right to write to it, but the one to give the new file its owner.
        const bool isLimited = !isRoot && (result == EACCES || result == EPERM || expected.value() == EACCES);
        // Several threads may meet another failure first, and copy other files before it.
        const bool isOtherFailure = ours.isLarge && result != 0 && *errors.begin() != 0;
        EXPECT_TRUE(isHidden || isLimited || isOtherFailure || errors.contains(result)) << result << expected;
        const bool isRefused =
            (slash == 0 && result == ontoItself) || (result == EEXIST && TypeOf(ours.src) != directory);
        EXPECT_EQ(copy.isOntoItself, result != 0 && isRefused);
        if (!isLimited && !isOtherFailure) {
            EXPECT_EQ(Listing(tree.Path("a"), meetsLink ? fs::weakly_canonical(ours.dst, ignored) : ""),
                      Listing(tree.Path("b"), meetsLink ? fs::weakly_canonical(theirs.dst, ignored) : ""));
        }
    }
}

/// The maximum length of a file on a tmpfs.
TEST(CopyEngineTest, DataAtTheEndOfTheLongestFile) {
    ScratchTree tree(ScratchTree::On::SecondFs);
    constexpr off_t at = std::numeric_limits<off_t>::max() - (1 << 20);
    const UniqueFd source(open(tree.File("s").c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(pwrite(source.Get(), "end", 3, at), 3);
    CopyResult result;
    EXPECT_EQ(Ours(tree.Path("s"), tree.Path("t"), {}, result), 0);
    char copied[4] = {};
    const UniqueFd target(open(tree.Path("t").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(pread(target.Get(), copied, sizeof(copied), at), 3);
    EXPECT_STREQ(copied, "end");
}

TEST(CopyEngineTest, LargeFilesHolesAndFilesThatLieAboutTheirSize) {
    ScratchTree tree, second(ScratchTree::On::SecondFs);
    std::string numbers;
    while (numbers.length() < (33 << 20)) {
        numbers += std::to_string(numbers.length()) + "\n";
    }
    tree.File("s/large", numbers);
    fs::resize_file(tree.File("s/sparse", "begin"), 1 << 20);
    const pid_t child = fork();
    if (child == 0) {
        const std::string variable = "X=" + std::string(100'000, 'x');
        execle("/bin/sleep", "sleep", "60", nullptr,
               std::array{variable.c_str(), static_cast<const char*>(nullptr)}.data());
        _exit(127);
    }
    const std::string environment = "/proc/" + std::to_string(child) + "/environ";
    EXPECT_TRUE(Becomes([&] { return ReadFile(environment).starts_with("X="); }));
    for (const std::string& target : {tree.Path("t"), second.Path("t")}) {
        CopyResult result;
        EXPECT_EQ(Ours(tree.Path("s"), target, {}, result), 0);
        EXPECT_TRUE(ReadFile(target + "/large") == numbers);
        EXPECT_LT(Lstat(target + "/sparse").st_blocks, 100);
        EXPECT_EQ(ReadFile(target + "/sparse"), ReadFile(tree.Path("s/sparse")));
        // Listed difference: to the library a file of 0 bytes is empty.
        for (const std::string& lies : {environment, std::string("/sys/kernel/mm/transparent_hugepage/enabled")}) {
            EXPECT_EQ(Ours(lies, target + "/sparse", {}, result), 0);
            EXPECT_EQ(ReadFile(target + "/sparse"), ReadFile(lies));
        }
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
