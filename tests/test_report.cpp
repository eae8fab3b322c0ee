#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "helpers/run.h"
#include "support/report.h"
#include "support/util.h"

struct Collector : Reporter {
    std::vector<std::string> got;
    void report(const char* text) override { got.push_back(text); }
};

static std::string text(const vec<char>& v) { return std::string(v.data, v.size); }

static std::string contentOf(const std::string& path) {
    char* s = readFile(path.c_str(), nullptr);
    std::string out = s ? s : "";
    free(s);
    return out;
}

// Identity of the file behind a descriptor.
static std::pair<dev_t, ino_t> fileOf(int fd) {
    struct stat st;
    fstat(fd, &st);
    return {st.st_dev, st.st_ino};
}

TEST(Reportf, CarriageReturnDropsThePartialLine) {
    Collector lines, raw;
    addReporter(lines, true);
    addReporter(raw, false);
    reportf("a\rb\n");
    removeReporter(lines);
    removeReporter(raw);
    EXPECT_EQ(lines.got, std::vector<std::string>{"b"});
    EXPECT_EQ(raw.got, std::vector<std::string>{"a\rb\n"});
}

TEST(Reportf, LinesAreAssembledAcrossCalls) {
    Collector lines, raw;
    addReporter(lines, true);
    addReporter(raw, false);
    reportf("%s", "ab");
    EXPECT_TRUE(lines.got.empty());
    reportf("%c\n%d\n", 'c', 12);
    removeReporter(lines);
    removeReporter(raw);
    EXPECT_EQ(lines.got, (std::vector<std::string>{"abc", "12"}));
    EXPECT_EQ(raw.got, (std::vector<std::string>{"ab", "c\n12\n"}));
}

TEST(Reportf, ReportersHearInRegistrationOrder) {
    std::vector<std::string> order;
    struct Named : Reporter {
        std::vector<std::string>* order;
        std::string name;
        void report(const char* t) override { order->push_back(name + ":" + t); }
    };
    Named first, second;
    first.order = second.order = &order;
    first.name = "1";
    second.name = "2";
    addReporter(first, true);
    addReporter(second, true);
    reportf("x\n");
    removeReporter(first);
    reportf("y\n");
    removeReporter(second);
    EXPECT_EQ(order, (std::vector<std::string>{"1:x", "2:x", "2:y"}));
}

TEST(Reportf, RemoveTakesTheLastEntryAndIgnoresTheFlag) {
    Collector a, b;
    addReporter(a, true);
    addReporter(b, false);
    addReporter(a, false);
    removeReporter(a);  // the raw-mode entry added last goes
    reportf("q\n");
    removeReporter(a);
    removeReporter(b);
    removeReporter(b);  // not registered any more: nothing happens
    EXPECT_EQ(a.got, std::vector<std::string>{"q"});
    EXPECT_EQ(b.got, std::vector<std::string>{"q\n"});
}

TEST(Reportf, WithoutReportersGoesToStandardOutput) {
    TempDir dir;
    std::string path = dir.file("out.txt");
    ASSERT_EQ(tell(path.c_str()), 1);
    reportf("value %d\r", 5);
    told();
    EXPECT_EQ(contentOf(path), "value 5\r");
}

TEST(Tell, MissingDirectoryLeavesOutputAlone) {
    auto before = fileOf(STDOUT_FILENO);
    EXPECT_EQ(tell("/tmp/slides-no-such-dir/x/out.txt"), 0);
    EXPECT_EQ(telling.size, 0);
    EXPECT_EQ(fileOf(STDOUT_FILENO), before);
}

TEST(Tell, NestedRedirectionsUnwind) {
    TempDir dir;
    std::string one = dir.file("one"), two = dir.file("two");
    auto before = fileOf(STDOUT_FILENO);
    ASSERT_EQ(tell(one.c_str()), 1);
    printf("first ");
    ASSERT_EQ(tell(two.c_str()), 1);
    printf("second");
    told();
    printf("again");
    told();
    EXPECT_EQ(fileOf(STDOUT_FILENO), before);
    EXPECT_EQ(contentOf(one), "first again");
    EXPECT_EQ(contentOf(two), "second");
    EXPECT_EQ(telling.size, 0);
}

TEST(Yell, RedirectsStandardError) {
    TempDir dir;
    std::string path = dir.file("err");
    auto before = fileOf(STDERR_FILENO);
    ASSERT_EQ(yell(path.c_str()), 1);
    fprintf(stderr, "oops %d", 3);
    yelled();
    EXPECT_EQ(fileOf(STDERR_FILENO), before);
    EXPECT_EQ(contentOf(path), "oops 3");
}

TEST(See, RedirectsStandardInput) {
    TempDir dir;
    std::string path = dir.file("in");
    writeFile(path.c_str(), "typed", 0xFFFFFFFFu);
    auto before = fileOf(STDIN_FILENO);
    ASSERT_EQ(see(path.c_str()), 1);
    char got[8] = {};
    EXPECT_EQ(read(STDIN_FILENO, got, 7), 5);
    seen();
    EXPECT_STREQ(got, "typed");
    EXPECT_EQ(fileOf(STDIN_FILENO), before);
    EXPECT_EQ(see(dir.file("missing").c_str()), 0);
}

TEST(PushNumber, DecimalWithoutTerminator) {
    const int values[] = {0, 7, -7, 1000000000, -2147483647 - 1};
    const char* texts[] = {"0", "7", "-7", "1000000000", "-2147483648"};
    for (int i = 0; i < 5; i++) {
        vec<char> out;
        pushNumber(out, values[i]);
        EXPECT_EQ(text(out), texts[i]);
    }
}

TEST(Pushf, AppendsWithoutTerminator) {
    vec<char> out;
    out.push('>');
    pushf(out, "%s=%d", "n", 42);
    pushf(out, "%s", "");
    EXPECT_EQ(text(out), ">n=42");
}
