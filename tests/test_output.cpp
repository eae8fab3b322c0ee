// Outputs written whole or not at all: the output module on its own, then the outputs of
// pack_slides, slides_codec and the viewer's PNG exports.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "codec/codec.h"
#include "helpers/archives.h"
#include "helpers/checks.h"
#include "helpers/pages.h"
#include "helpers/run.h"
#include "io/output.h"
#include "png/png.h"

namespace {

mode_t typeAt(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0 ? st.st_mode & S_IFMT : 0;
}

mode_t permissionsOf(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// A FIFO, a folder, a socket and, where this user may make one, a private device node (the null
// device's numbers) in dir: the things an output must never replace or write into.
std::vector<std::string> makeSpecialNodes(const std::string& dir) {
    std::vector<std::string> nodes = {dir + "/fifo", dir + "/folder", dir + "/socket"};
    EXPECT_EQ(mkfifo(nodes[0].c_str(), 0644), 0);
    EXPECT_EQ(mkdir(nodes[1].c_str(), 0755), 0);
    int s = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", nodes[2].c_str());
    EXPECT_EQ(bind(s, (sockaddr*)&address, sizeof address), 0);
    close(s);
    std::string device = dir + "/device";
    if (mknod(device.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0) nodes.push_back(device);
    return nodes;
}

vec<const char*> noInputs() { return vec<const char*>(); }

TEST(Output, WhatIsNotARegularFileIsRefused) {
    TempDir tmp;
    for (const std::string& node : makeSpecialNodes(tmp.path)) {
        mode_t type = typeAt(node);
        const char* error = checkOutput(node.c_str(), noInputs());
        ASSERT_NE(error, nullptr) << node;
        EXPECT_NE(std::string(error).find("it exists and is not a regular file"), std::string::npos) << error;
        Output out;
        EXPECT_NE(beginOutput(out, node.c_str(), noInputs(), OUTPUT_FILE), nullptr) << node;
        EXPECT_EQ(out.temp, nullptr);
        EXPECT_EQ(typeAt(node), type) << node;
    }
}

TEST(Output, AnInputIsRefusedByDeviceAndInode) {
    TempDir tmp;
    std::string input = tmp.file("talk.pdf"), hard = tmp.file("hard"), link = tmp.file("link");
    writeFileBytes(input, "the talk");
    ASSERT_EQ(::link(input.c_str(), hard.c_str()), 0);
    ASSERT_EQ(symlink(input.c_str(), link.c_str()), 0);
    vec<const char*> inputs;
    inputs.push(input.c_str());
    const char* error = checkOutput(input.c_str(), inputs);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(std::string(error), "Could not write: " + input + ": it would replace the input " + input);
    EXPECT_NE(checkOutput(hard.c_str(), inputs), nullptr);
    // The input named through a link: the link's target is the input.
    vec<const char*> through_link;
    through_link.push(link.c_str());
    EXPECT_NE(checkOutput(input.c_str(), through_link), nullptr);
    // An output that is a link to the input replaces the link, not the input: allowed.
    EXPECT_EQ(checkOutput(link.c_str(), inputs), nullptr);
    EXPECT_EQ(readFileBytes(input), "the talk");
}

TEST(Output, WrittenUnderATemporaryNameAndRenamed) {
    TempDir tmp;
    std::string path = tmp.file("show");
    Output out;
    ASSERT_EQ(beginOutput(out, path.c_str(), noInputs(), OUTPUT_FILE), nullptr);
    ASSERT_NE(out.temp, nullptr);
    EXPECT_EQ(std::string(out.temp).rfind(path + ".tmp.", 0), 0u) << out.temp;
    EXPECT_FALSE(standsAt(path));
    ASSERT_EQ(write(out.fd, "bytes", 5), 5);
    close(out.fd);
    ASSERT_EQ(finishOutput(out), nullptr);
    EXPECT_EQ(out.temp, nullptr);
    EXPECT_EQ(readFileBytes(path), "bytes");
    EXPECT_EQ(folderNames(tmp.path), std::vector<std::string>{"show"});
}

TEST(Output, ASymbolicLinkIsReplacedNotFollowed) {
    TempDir tmp;
    std::string target = tmp.file("target"), path = tmp.file("out.png");
    writeFileBytes(target, "keep me");
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
    Output out;
    ASSERT_EQ(beginOutput(out, path.c_str(), noInputs(), OUTPUT_FILE), nullptr);
    ASSERT_EQ(write(out.fd, "new", 3), 3);
    close(out.fd);
    ASSERT_EQ(finishOutput(out), nullptr);
    EXPECT_EQ(typeAt(path), (mode_t)S_IFREG);
    EXPECT_EQ(readFileBytes(path), "new");
    EXPECT_EQ(readFileBytes(target), "keep me");
}

TEST(Output, PermissionsAreTheUmasksShare) {
    TempDir tmp;
    std::string archive = tmp.file("archive"), show = tmp.file("show"), open = tmp.file("open");
    mode_t saved = umask(027);
    Output file, program;
    ASSERT_EQ(beginOutput(file, archive.c_str(), noInputs(), OUTPUT_FILE), nullptr);
    ASSERT_EQ(beginOutput(program, show.c_str(), noInputs(), OUTPUT_PROGRAM), nullptr);
    umask(0);
    Output open_file;
    ASSERT_EQ(beginOutput(open_file, open.c_str(), noInputs(), OUTPUT_FILE), nullptr);
    umask(saved);
    EXPECT_EQ(permissionsOf(file.temp), 0640u);
    EXPECT_EQ(permissionsOf(program.temp), 0750u);
    EXPECT_EQ(permissionsOf(open_file.temp), 0666u);
    for (Output* out : {&file, &program, &open_file}) {
        close(out->fd);
        ASSERT_EQ(finishOutput(*out), nullptr);
    }
    EXPECT_EQ(permissionsOf(show), 0750u);
}

TEST(Output, ANameWithoutRoomForTheTemporarySuffixIsSaidSo) {
    TempDir tmp;
    std::string fits = tmp.file(std::string(244, 'a')), too_long = tmp.file(std::string(245, 'b'));
    EXPECT_EQ(checkOutput(fits.c_str(), noInputs()), nullptr);
    const char* error = checkOutput(too_long.c_str(), noInputs());
    ASSERT_NE(error, nullptr);
    EXPECT_NE(std::string(error).find("too long to add the temporary suffix"), std::string::npos) << error;
}

TEST(Output, AMissingFolderFailsAtTheStart) {
    TempDir tmp;
    std::string path = tmp.file("no/such/show");
    Output out;
    const char* error = beginOutput(out, path.c_str(), noInputs(), OUTPUT_FILE);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(std::string(error), "Could not write: " + path + ": cannot create a file in " + tmp.file("no/such") +
                                      ": No such file or directory");
}

// In a child: begins an output in dir, then ends as `end` says. Returns the child's wait status.
int endWithAnOutputBegun(const std::string& dir, void (*end)()) {
    pid_t pid = fork();
    if (pid == 0) {
        freopen("/dev/null", "w", stdout);  // the handlers' messages
        noCoreFile()();
        Output out;
        if (beginOutput(out, (dir + "/show").c_str(), noInputs(), OUTPUT_PROGRAM)) _exit(3);
        end();
        _exit(4);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

TEST(Output, TheTemporaryFileGoesWithEveryEndOfTheProcess) {
    struct Case {
        const char* what;
        void (*end)();
    } cases[] = {
        {"exit", [] { exit(1); }},
        {"SIGINT", [] { raise(SIGINT); }},
        {"SIGTERM", [] { raise(SIGTERM); }},
        {"SIGHUP", [] { raise(SIGHUP); }},
        {"crash", [] { raise(SIGSEGV); }},
        {"abort", [] { abort(); }},
    };
    for (const Case& c : cases) {
        TempDir tmp;
        int status = endWithAnOutputBegun(tmp.path, c.end);
        EXPECT_FALSE(WIFEXITED(status) && (WEXITSTATUS(status) == 3 || WEXITSTATUS(status) == 4)) << c.what;
        EXPECT_EQ(folderNames(tmp.path), std::vector<std::string>()) << c.what;
    }
}

TEST(Output, AChildProcessEndingLeavesItsParentsTemporaryFile) {
    TempDir tmp;
    int status = endWithAnOutputBegun(tmp.path, [] {
        pid_t worker = fork();
        if (worker == 0) exit(0);  // a worker process ending the ordinary way
        waitpid(worker, nullptr, 0);
        _exit(0);  // leaves the temporary file, to be looked at
    });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(folderNames(tmp.path).size(), 1u);
}

// ---- The programs' outputs --------------------------------------------------------------------

class ProgramOutputs : public ::testing::Test {
protected:
    TempDir tmp;
    std::string page = tmp.file("page_1.png");
    void SetUp() override { writePage(page, 40, 30, 1); }

    RunResult pack(std::vector<std::string> args, const std::function<void()>& in_child = {}) {
        args.insert(args.begin(), buildProgram("pack_slides"));
        return runProgram(args, "", {}, allOf({timeLimit(60), in_child}));
    }
    // A separate archive of the page.
    std::string archive() {
        std::string path = tmp.file("talk.slides");
        if (!standsAt(path)) {
            EXPECT_EQ(pack({page, "--archive", path}).status, 0);
        }
        return path;
    }
    RunResult exportIn(const std::string& dir, const std::string& archive_path,
                       const std::function<void()>& in_child = {}) {
        return runProgram({buildProgram("view_slides"), archive_path, "-png-screens"}, dir, {},
                          allOf({timeLimit(60), in_child}));
    }
};

TEST_F(ProgramOutputs, AnOutputThatIsNotARegularFileIsRefusedBeforeAnyWork) {
    std::string stream = tmp.file("page.bin");
    ASSERT_EQ(runProgram({buildProgram("slides_codec"), "encode", page, stream}).status, 0);
    std::string archive_path = archive();
    TempDir nodes;
    for (const std::string& node : makeSpecialNodes(nodes.path)) {
        mode_t type = typeAt(node);
        RunResult r = pack({page, "--archive", node});
        EXPECT_EQ(r.status, 1) << node;
        EXPECT_TRUE(oneErrorLine(r, node + ": it exists and is not a regular file"));
        EXPECT_EQ(r.out.find("Reading page"), std::string::npos) << r.out;
        r = runProgram({buildProgram("slides_codec"), "decode", stream, node}, "", {}, timeLimit(60));
        EXPECT_TRUE(oneErrorLine(r, "not a regular file"));
        EXPECT_EQ(typeAt(node), type) << node;
    }
    // An export whose name is taken by a FIFO: once it hung the viewer; now nothing is written.
    TempDir out;
    ASSERT_EQ(mkfifo(out.file("screen_000.png").c_str(), 0644), 0);
    RunResult r = exportIn(out.path, archive_path);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(oneErrorLine(r, "screen_000.png: it exists and is not a regular file"));
    EXPECT_EQ(r.out.find("Decompressing"), std::string::npos);
    EXPECT_EQ(typeAt(out.file("screen_000.png")), (mode_t)S_IFIFO);
    EXPECT_EQ(folderNames(out.path), std::vector<std::string>{"screen_000.png"});
}

TEST_F(ProgramOutputs, AnOutputThatIsAnInputIsRefused) {
    std::string list = tmp.file("list.txt"), viewer = tmp.file("viewer"), hard = tmp.file("hard.png");
    writeFileBytes(list, "page_1.png 0\n");
    ASSERT_EQ(runProgram({"/bin/cp", buildProgram("view_slides"), viewer}).status, 0);
    ASSERT_EQ(link(page.c_str(), hard.c_str()), 0);
    std::string deck = tmp.file("deck");
    mkdir(deck.c_str(), 0755);
    writePage(deck + "/p.png", 40, 30, 2);
    writeFileBytes(deck + "/slides.txt", "p.png 0\n");
    struct Case {
        std::vector<std::string> args;
        std::string input;
    } cases[] = {
        {{page, "--archive", page}, page},
        {{page, "--archive", hard}, page},
        {{page, "--slides", list, "--archive", list}, list},
        {{page, "--viewer", viewer, "-o", viewer}, viewer},
        {{deck, "--archive", deck + "/slides.txt"}, deck + "/slides.txt"},
        {{deck, "--archive", deck + "/p.png"}, deck + "/p.png"},
    };
    for (const Case& c : cases) {
        std::string before = readFileBytes(c.input);
        RunResult r = pack(c.args);
        EXPECT_EQ(r.status, 1) << c.input;
        EXPECT_TRUE(oneErrorLine(r, "it would replace the input"));
        EXPECT_EQ(readFileBytes(c.input), before) << c.input;
    }
    RunResult r = runProgram({buildProgram("slides_codec"), "encode", page, page});
    EXPECT_TRUE(oneErrorLine(r, "it would replace the input"));
    // The viewer exporting into the folder that holds its archive under an export's name.
    TempDir out;
    std::string named = out.file("screen_000.png");
    writeFileBytes(named, readFileBytes(archive()));
    r = exportIn(out.path, named);
    EXPECT_TRUE(oneErrorLine(r, "screen_000.png: it would replace the input"));
    EXPECT_EQ(readFileBytes(named), readFileBytes(archive()));
}

TEST_F(ProgramOutputs, ExportsReplaceALinkAndAreNeverLeftHalfWritten) {
    std::string archive_path = archive();
    TempDir out;
    std::string target = tmp.file("target");
    writeFileBytes(target, "not to be overwritten");
    ASSERT_EQ(symlink(target.c_str(), out.file("screen_000.png").c_str()), 0);
    RunResult r = exportIn(out.path, archive_path);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readFileBytes(target), "not to be overwritten");
    EXPECT_EQ(typeAt(out.file("screen_000.png")), (mode_t)S_IFREG);
    Bitmap screen;
    EXPECT_TRUE(readPng(out.file("screen_000.png").c_str(), screen));

    // A full disk (a file size limit here): the reason, and no PNG cut short.
    TempDir full;
    r = exportIn(full.path, archive_path, fileSizeLimit(1000));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(oneErrorLine(r, "Could not write: screen_000.png: File too large"));
    EXPECT_EQ(folderNames(full.path), std::vector<std::string>());
}

// An archive of many screens that are slow to export: each is a see-through screen over one
// background of noise, so that the archive itself is quick to make.
std::string noisyArchive(const std::string& path, int screens) {
    std::mt19937 rng(7);
    Bitmap noise, clear;
    for (Bitmap* b : {&noise, &clear}) {
        b->data = allocPixels(600, 400);
        b->width = 600;
        b->height = 400;
    }
    for (int i = 0; i < 600 * 400; i++) {
        noise.data[i] = Color{(unsigned char)rng(), (unsigned char)rng(), (unsigned char)rng(), 0};
        clear.data[i] = color_SeeThrough;
    }
    vec<vec<unsigned char> > backgrounds;
    compress(noise, backgrounds.push(), false);
    vec<ScreenRecord> records;
    vec<bool> flags;
    for (int i = 0; i < screens; i++) {
        compress(clear, records.push().payload, false);
        flags.push(false);
    }
    return writeArchiveFile(path, ARCHIVE_SEPARATE, "", backgrounds, records, flags);
}

TEST_F(ProgramOutputs, AnInterruptedExportLeavesOnlyWholePngs) {
    std::string archive_path = tmp.file("noisy.slides");
    noisyArchive(archive_path, 40);
    TempDir out;
    int status = signalAfter({buildProgram("view_slides"), archive_path, "-png-screens"}, out.path, SIGINT, 500);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 255) << "interrupted before the end";
    std::vector<std::string> names = folderNames(out.path);
    EXPECT_LT(names.size(), 40u);
    for (const std::string& name : names) {
        EXPECT_EQ(name.find(".tmp."), std::string::npos) << name;
        Bitmap screen;
        EXPECT_TRUE(readPng(out.file(name).c_str(), screen)) << name;
    }
}

TEST_F(ProgramOutputs, PermissionsFollowTheUmask) {
    std::string archive_path = archive();
    for (unsigned mask : {027u, 0u}) {
        TempDir out;
        ASSERT_EQ(pack({page, "-o", out.file("show")}, withUmask(mask)).status, 0);
        ASSERT_EQ(pack({page, "--archive", out.file("archive")}, withUmask(mask)).status, 0);
        ASSERT_EQ(runProgram({buildProgram("slides_codec"), "encode", page, out.file("page.bin")}, "", {},
                             withUmask(mask))
                      .status,
                  0);
        ASSERT_EQ(exportIn(out.path, archive_path, withUmask(mask)).status, 0);
        EXPECT_EQ(permissionsOf(out.file("show")), 0777 & ~mask);
        EXPECT_EQ(permissionsOf(out.file("archive")), 0666 & ~mask);
        EXPECT_EQ(permissionsOf(out.file("page.bin")), 0666 & ~mask);
        EXPECT_EQ(permissionsOf(out.file("screen_000.png")), 0666 & ~mask);
    }
}

TEST_F(ProgramOutputs, AFolderThatTakesNoFilesFailsBeforeTheWork) {
    std::string archive_path = archive();
    TempDir locked;
    std::function<void()> in_child;
    if (!makeUnwritable(locked.path, &in_child)) GTEST_SKIP() << "cannot make a folder unwritable here";
    RunResult r = pack({page, "-o", locked.file("show")}, in_child);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(oneErrorLine(r, "Could not write: " + locked.file("show") + ": cannot create a file in " + locked.path));
    EXPECT_EQ(r.out.find("Reading page"), std::string::npos) << r.out;
    r = runProgram({buildProgram("slides_codec"), "encode", page, locked.file("page.bin")}, "", {}, in_child);
    EXPECT_TRUE(oneErrorLine(r, "cannot create a file in " + locked.path));
    r = exportIn(locked.path, archive_path, in_child);
    EXPECT_TRUE(oneErrorLine(r, "Could not write: screen_000.png: cannot create a file in ."));
    EXPECT_EQ(r.out.find("Decompressing"), std::string::npos);
    chmod(locked.path.c_str(), 0755);
    EXPECT_EQ(folderNames(locked.path), std::vector<std::string>());
}

TEST_F(ProgramOutputs, ANameTooLongForTheTemporarySuffixIsSaidSo) {
    std::string name = tmp.file(std::string(250, 'n'));
    RunResult r = pack({page, "--archive", name});
    EXPECT_TRUE(oneErrorLine(r, "the name is too long to add the temporary suffix .tmp.XXXXXX beside it"));
    r = runProgram({buildProgram("slides_codec"), "encode", page, name});
    EXPECT_TRUE(oneErrorLine(r, "too long to add the temporary suffix"));
}

}  // namespace
