// Command-line parsing and queries: values, switches, arguments, and every error exit.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "cmdline/cmdline.h"

using namespace CmdLine;

namespace {

// An argv of writable strings (parsing writes NUL bytes into them); argv[0] is "prog".
struct Argv {
    std::vector<std::vector<char>> storage;
    std::vector<char*> ptrs;

    explicit Argv(std::initializer_list<const char*> words) {
        storage.reserve(words.size() + 1);
        add("prog");
        for (const char* w : words) add(w);
        ptrs.push_back(nullptr);
    }
    void add(const char* w) {
        storage.emplace_back(w, w + strlen(w) + 1);
        ptrs.push_back(storage.back().data());
    }
    int argc() const { return (int)storage.size(); }
    char** argv() { return ptrs.data(); }
};

// An anchored regex that matches exactly the given text.
std::string exactly(const std::string& text) {
    std::string re = "^";
    for (char c : text) {
        if (strchr("\\^$.|?*+()[]{}", c)) re += '\\';
        re += c;
    }
    return re + "$";
}

std::string dumped(Value v) {
    char* buf = nullptr;
    size_t len = 0;
    FILE* f = open_memstream(&buf, &len);
    dump(v, f);
    fclose(f);
    std::string s(buf, len);
    free(buf);
    return s;
}

class CmdLineTest : public ::testing::Test {
protected:
    Argv* args = nullptr;

    void parse(std::initializer_list<const char*> words) {
        delete args;
        args = new Argv(words);
        parseCommandline(args->argc(), args->argv());
    }
    void TearDown() override {
        reset();
        delete args;
    }
};

#define EXPECT_CMDLINE_ERROR(statement, message) \
    EXPECT_EXIT(statement, ::testing::ExitedWithCode(10), exactly(message))

// ---- the store -----------------------------------------------------------------------------

TEST_F(CmdLineTest, NoArgumentsLeavesEverythingEmpty) {
    parse({});
    EXPECT_EQ(RawData::cmd, nullptr);
    EXPECT_EQ(RawData::switches.size, 0);
    EXPECT_EQ(RawData::args.size, 0);
    char def[] = "default";
    EXPECT_EQ(getArg_Text(0, def), def);
    EXPECT_EQ(getArg_Num(0, 1.5), 1.5);
    EXPECT_EQ(getArg_Int(3, -7), -7);
    EXPECT_FALSE(getSwitch_Null("debug"));
    EXPECT_EQ(getCommand_Enum("view,edit", 4), 4);
    EXPECT_EXIT((assertCmdlineRead(), exit(0)), ::testing::ExitedWithCode(0), "");
}

TEST_F(CmdLineTest, ArgcBelowTwoParsesNothing) {
    Argv a({"ignored"});
    parseCommandline(1, a.argv());
    parseCommandline(0, a.argv());
    EXPECT_EQ(RawData::args.size, 0);
}

TEST_F(CmdLineTest, SwitchesKeepOrderAndDuplicates) {
    parse({"-a", "--b=2", "-a=x"});
    ASSERT_EQ(RawData::switches.size, 3);
    ASSERT_EQ(RawData::switch_checked.size, 3);
    EXPECT_STREQ(RawData::switches[0].name, "a");
    EXPECT_STREQ(RawData::switches[1].name, "b");
    EXPECT_STREQ(RawData::switches[2].name, "a");
    EXPECT_EQ(RawData::switches[0].value.type, Null);
    EXPECT_EQ(RawData::switches[1].value.type, Num);
    EXPECT_EQ(RawData::switches[1].value.num, 2.0);
    EXPECT_EQ(RawData::switches[2].value.type, Text);
    EXPECT_EQ(RawData::switch_checked[0], 0);
}

TEST_F(CmdLineTest, ThirdDashBelongsToTheName) {
    parse({"---x"});
    ASSERT_EQ(RawData::switches.size, 1);
    EXPECT_STREQ(RawData::switches[0].name, "-x");
}

TEST_F(CmdLineTest, SecondParseAppends) {
    parse({"a"});
    Argv more({"b"});
    parseCommandline(more.argc(), more.argv());
    ASSERT_EQ(RawData::args.size, 2);
    EXPECT_STREQ(getArg_Text(1), "b");
}

TEST_F(CmdLineTest, ResetEmptiesTheStore) {
    parse({"[1;[2]]", "-s", ",cmd"});
    EXPECT_EQ(free_list.size, 2);
    reset();
    EXPECT_EQ(RawData::cmd, nullptr);
    EXPECT_EQ(RawData::args.size, 0);
    EXPECT_EQ(RawData::args.cap, 0);
    EXPECT_EQ(RawData::switches.cap, 0);
    EXPECT_EQ(RawData::arg_checked.cap, 0);
    EXPECT_EQ(RawData::switch_checked.cap, 0);
    EXPECT_EQ(free_list.cap, 0);
}

// ---- values --------------------------------------------------------------------------------

TEST_F(CmdLineTest, ConstantValues) {
    EXPECT_EQ(Value_NULL.type, Null);
    EXPECT_EQ(Value_NULL.text, nullptr);
    EXPECT_EQ(Value_ERR.type, Null);
    EXPECT_EQ(Value_ERR.num, -1.0);
}

TEST_F(CmdLineTest, NumbersAndTexts) {
    parse({"3", "-", "hello world", "1-2", "+", "1e5", "1,", "", "  , 7"});
    ASSERT_EQ(RawData::args.size, 9);
    EXPECT_EQ(getArg_Num(0), 3.0);
    EXPECT_STREQ(getArg_Text(1), "-");
    EXPECT_STREQ(getArg_Text(2), "hello world");
    EXPECT_EQ(getArg_Num(3), 1.0);  // lexically a number; strtod reads the 1
    EXPECT_EQ(getArg_Num(4), 0.0);
    EXPECT_STREQ(getArg_Text(5), "1e5");  // 'e' is not a number character
    EXPECT_STREQ(getArg_Text(6), "1,");
    EXPECT_EQ(getArg(7).type, Null);
    EXPECT_EQ(getArg(7).num, 0.0);
    EXPECT_EQ(getArg_Num(8), 7.0);
}

TEST_F(CmdLineTest, TopLevelTextKeepsBracketsAndSemicolons) {
    parse({"a;b]c"});
    EXPECT_STREQ(getArg_Text(0), "a;b]c");
}

TEST_F(CmdLineTest, ListOfNumbers) {
    parse({"[1;2]"});
    Value v = getArg(0);
    ASSERT_EQ(v.type, List);
    ASSERT_EQ(v.list->size, 2);
    EXPECT_EQ((*v.list)[0].type, Num);
    EXPECT_EQ((*v.list)[0].num, 1.0);
    EXPECT_EQ((*v.list)[1].num, 2.0);
    EXPECT_EQ(free_list.size, 1);
    EXPECT_EQ(free_list[0], v.list);
}

TEST_F(CmdLineTest, CommaAfterNumberMakesText) {
    parse({"[1,2]"});
    Value v = getArg(0);
    ASSERT_EQ(v.list->size, 1);
    EXPECT_EQ((*v.list)[0].type, Text);
    EXPECT_STREQ((*v.list)[0].text, "1,2");
}

TEST_F(CmdLineTest, BlankAfterNumberMakesText) {
    parse({"[1;2 ]"});
    Value v = getArg(0);
    ASSERT_EQ(v.list->size, 2);
    EXPECT_EQ((*v.list)[0].type, Num);
    EXPECT_EQ((*v.list)[1].type, Text);
    EXPECT_STREQ((*v.list)[1].text, "2 ");
}

TEST_F(CmdLineTest, TextElementsKeepInnerSpaces) {
    parse({"[ a b ;c]"});
    Value v = getArg(0);
    ASSERT_EQ(v.list->size, 2);
    EXPECT_STREQ((*v.list)[0].text, "a b ");
    EXPECT_STREQ((*v.list)[1].text, "c");
}

TEST_F(CmdLineTest, NestedListsSeparatedByBlank) {
    parse({"[[1] [2;x]]"});
    Value v = getArg(0);
    ASSERT_EQ(v.type, List);
    ASSERT_EQ(v.list->size, 2);
    EXPECT_EQ(dumped(v), "[[1] [2 x]]");
    EXPECT_EQ(free_list.size, 3);
}

TEST_F(CmdLineTest, EmptyListsAndEmptyItems) {
    parse({"[]", "[1;]"});
    Value empty = getArg(0);
    ASSERT_EQ(empty.type, List);
    EXPECT_EQ(empty.list->size, 0);
    Value v = getArg(1);
    ASSERT_EQ(v.list->size, 2);
    EXPECT_EQ((*v.list)[1].type, Text);
    EXPECT_STREQ((*v.list)[1].text, "");
}

TEST_F(CmdLineTest, ManyListElements) {
    std::string text = "[";
    for (int i = 0; i < 50; i++) text += std::to_string(i) + ";";
    text += "]";
    parse({text.c_str()});
    Value v = getArg(0);
    ASSERT_EQ(v.list->size, 51);
    for (int i = 0; i < 50; i++) EXPECT_EQ((*v.list)[i].num, i);
}

TEST_F(CmdLineTest, DeepNestingParses) {
    const int depth = 200000;
    std::string text = std::string(depth, '[') + "7" + std::string(depth, ']');
    parse({text.c_str()});
    Value v = getArg(0);
    for (int level = 0; level < depth; level++) {
        ASSERT_EQ(v.type, List);
        ASSERT_EQ(v.list->size, 1);
        v = (*v.list)[0];
    }
    EXPECT_EQ(v.type, Num);
    EXPECT_EQ(v.num, 7.0);
    EXPECT_EQ(free_list.size, depth);
}

TEST_F(CmdLineTest, DeepUnterminatedNestingExits) {
    std::string text = std::string(200000, '[') + "1;2" + std::string(1000, ']');
    EXPECT_CMDLINE_ERROR(parse({text.c_str()}),
                         "ERROR! Unterminated list; missing ']'. Did you forget to use quotes or commas?\n");
}

TEST_F(CmdLineTest, ParseValueReportsEnd) {
    char text[] = " ,\t";
    char* p = text;
    Value v = Value_ERR;
    EXPECT_FALSE(parseValue(p, v));
    EXPECT_EQ(v.type, Null);
    EXPECT_EQ(v.num, 0.0);
    char two[] = "4;5";
    p = two;
    EXPECT_TRUE(parseValue(p, v));
    EXPECT_EQ(v.num, 4.0);
    EXPECT_EQ(*p, ';');
}

TEST_F(CmdLineTest, UnterminatedListExits) {
    EXPECT_CMDLINE_ERROR(parse({"[1;2"}),
                         "ERROR! Unterminated list; missing ']'. Did you forget to use quotes or commas?\n");
    EXPECT_CMDLINE_ERROR(parse({"-x=[[1]"}),
                         "ERROR! Unterminated list; missing ']'. Did you forget to use quotes or commas?\n");
}

// ---- commands and the double dash ----------------------------------------------------------

TEST_F(CmdLineTest, CommandIsTakenWithoutComma) {
    parse({"--", ",edit", "-5"});
    EXPECT_STREQ(RawData::cmd, "edit");
    EXPECT_EQ(getCommand_Enum("view, edit", 0), 1);
    EXPECT_EQ(getArg_Num(0), -5.0);
}

TEST_F(CmdLineTest, TwoCommandsExit) {
    EXPECT_CMDLINE_ERROR(parse({",view", ",edit"}), "ERROR! Only one command may be specified.\n");
}

TEST_F(CmdLineTest, UnknownCommandExits) {
    parse({",draw"});
    EXPECT_CMDLINE_ERROR(getCommand_Enum("view,edit", 0), "ERROR! Command should be one of: view,edit\n");
}

TEST_F(CmdLineTest, NegativeNumberIsASwitchUnlessAfterDoubleDash) {
    parse({"-5", "--", "-5", "--", "-"});
    ASSERT_EQ(RawData::switches.size, 1);
    EXPECT_STREQ(RawData::switches[0].name, "5");
    ASSERT_EQ(RawData::args.size, 3);
    EXPECT_EQ(getArg(0).type, Num);
    EXPECT_EQ(getArg_Num(0), -5.0);
    EXPECT_EQ(getArg(1).type, Num);  // after "--", dashes alone are number tokens
    EXPECT_EQ(getArg(2).type, Num);
}

TEST_F(CmdLineTest, LoneDashIsText) {
    parse({"-"});
    ASSERT_EQ(RawData::args.size, 1);
    EXPECT_STREQ(getArg_Text(0), "-");
    EXPECT_EQ(RawData::arg_checked[0], 1);
}

// ---- positional queries --------------------------------------------------------------------

TEST_F(CmdLineTest, MissingArgumentExits) {
    parse({"a"});
    EXPECT_CMDLINE_ERROR(getArg(1), "ERROR! Missing argument 2.\n");
    EXPECT_CMDLINE_ERROR(getArg_Num(1), "ERROR! Missing argument 2.\n");
    EXPECT_CMDLINE_ERROR(getArg_Int(2), "ERROR! Missing argument 3.\n");
    EXPECT_CMDLINE_ERROR(getArg_Text(1), "ERROR! Missing argument 2.\n");
}

TEST_F(CmdLineTest, WrongArgumentTypesExit) {
    parse({"abc", "5"});
    EXPECT_CMDLINE_ERROR(getArg_Num(0), "ERROR! Argument 1 expected to be a number.\n");
    EXPECT_CMDLINE_ERROR(getArg_Num(0, 2.0), "ERROR! Argument 1 expected to be a number.\n");
    EXPECT_CMDLINE_ERROR(getArg_Int(0), "ERROR! Argument 1 expected to be a number.\n");
    EXPECT_CMDLINE_ERROR(getArg_Text(1), "ERROR! Argument 2 expected to be a string.\n");
    char def[] = "d";
    EXPECT_CMDLINE_ERROR(getArg_Text(1, def), "ERROR! Argument 2 expected to be a string.\n");
}

TEST_F(CmdLineTest, IntegerArguments) {
    parse({"2.5", "3", "-0.0", "2147483648", "-2147483648", "-2147483649", "3.0"});
    EXPECT_CMDLINE_ERROR(getArg_Int(0), "ERROR! Argument 1 expected to be an integer.\n");
    EXPECT_CMDLINE_ERROR(getArg_Int(0, 9), "ERROR! Argument 1 expected to be an integer.\n");
    EXPECT_EQ(getArg_Int(1), 3);
    EXPECT_EQ(getArg_Int(1, 9), 3);
    EXPECT_EQ(RawData::switches.size, 3);  // "-0.0", "-2147483648" and "-2147483649" are switches
    EXPECT_CMDLINE_ERROR(getArg_Int(2), "ERROR! Argument 3 expected to be an integer.\n");
    EXPECT_EQ(getArg_Int(3), 3);
    EXPECT_EQ(getArg_Int(4, 1), 1);
}

TEST_F(CmdLineTest, IntegerLimitsAfterDoubleDash) {
    parse({"--", "-0.0", "-2147483648", "-2147483649", "2147483647"});
    EXPECT_EQ(getArg_Int(0), 0);
    EXPECT_EQ(getArg_Int(1), -2147483647 - 1);
    EXPECT_CMDLINE_ERROR(getArg_Int(2), "ERROR! Argument 3 expected to be an integer.\n");
    EXPECT_EQ(getArg_Int(3), 2147483647);
}

TEST_F(CmdLineTest, DefaultedQueriesMarkOnlyPresentArguments) {
    parse({"7"});
    char def[] = "d";
    EXPECT_EQ(getArg_Num(1, 2.0), 2.0);
    EXPECT_EQ(getArg_Text(2, def), def);
    EXPECT_EQ(RawData::arg_checked[0], 0);
    EXPECT_EQ(getArg_Num(0, 2.0), 7.0);
    EXPECT_EQ(RawData::arg_checked[0], 1);
}

// ---- switch queries ------------------------------------------------------------------------

TEST_F(CmdLineTest, DebugWithOneOrTwoDashes) {
    parse({"-debug"});
    EXPECT_TRUE(getSwitch_Null("debug"));
    reset();
    parse({"--debug"});
    EXPECT_TRUE(getSwitch_Null("debug"));
    EXPECT_EQ(RawData::switch_checked[0], 1);
}

TEST_F(CmdLineTest, SwitchWithEmptyValueIsNull) {
    parse({"-debug="});
    EXPECT_TRUE(getSwitch_Null("debug"));
}

TEST_F(CmdLineTest, NullSwitchWithValueExits) {
    parse({"-debug=1"});
    EXPECT_CMDLINE_ERROR(getSwitch_Null("debug"), "ERROR! Switch takes no argument: debug\n");
}

TEST_F(CmdLineTest, GetSwitchReturnsFirstEntryOrDefault) {
    parse({"-n=1", "-n=2"});
    Value v = getSwitch("n", Value_ERR);
    EXPECT_EQ(v.num, 1.0);
    EXPECT_EQ(RawData::switch_checked[0], 1);
    EXPECT_EQ(RawData::switch_checked[1], 0);
    Value other = getSwitch("m", Value_ERR);
    EXPECT_EQ(other.type, Null);
    EXPECT_EQ(other.num, -1.0);
}

TEST_F(CmdLineTest, NumberSwitches) {
    parse({"-speed=0.5", "-name=fast", "-flag", "-count=4", "-half=2.5"});
    EXPECT_EQ(getSwitch_Num("speed", 1.0), 0.5);
    EXPECT_EQ(getSwitch_Num("missing", 1.25), 1.25);
    EXPECT_EQ(getSwitch_Int("count", 0), 4);
    EXPECT_EQ(getSwitch_Int("missing", -3), -3);
    EXPECT_CMDLINE_ERROR(getSwitch_Num("name", 1.0), "ERROR! Expected number as argument to switch: name\n");
    EXPECT_CMDLINE_ERROR(getSwitch_Num("flag", 1.0), "ERROR! Expected number as argument to switch: flag\n");
    EXPECT_CMDLINE_ERROR(getSwitch_Int("name", 1), "ERROR! Expected number as argument to switch: name\n");
    EXPECT_CMDLINE_ERROR(getSwitch_Int("half", 1), "ERROR! Expected integer as argument to switch: half\n");
}

TEST_F(CmdLineTest, TextSwitches) {
    parse({"-title=My show", "-n=3"});
    char def[] = "none";
    EXPECT_STREQ(getSwitch_Text("title", def), "My show");
    EXPECT_EQ(getSwitch_Text("missing", def), def);
    EXPECT_CMDLINE_ERROR(getSwitch_Text("n", def), "ERROR! Expected string as argument to switch: n\n");
}

TEST_F(CmdLineTest, EnumSwitches) {
    parse({"-mode=slow", "-bad=medium", "-num=1"});
    EXPECT_EQ(getSwitch_Enum("mode", "fast,slow", 0), 1);
    EXPECT_EQ(getSwitch_Enum("missing", "fast,slow", 5), 5);
    EXPECT_CMDLINE_ERROR(getSwitch_Enum("bad", "fast,slow", 0), "ERROR! '-bad' expected one of: fast,slow\n");
    EXPECT_CMDLINE_ERROR(getSwitch_Enum("num", "fast,slow", 0), "ERROR! Expected string as argument to switch: num\n");
}

TEST_F(CmdLineTest, EnumModeMediumQuotesAlternatives) {
    parse({"-mode=medium"});
    EXPECT_CMDLINE_ERROR(getSwitch_Enum("mode", "fast, slow", 0), "ERROR! '-mode' expected one of: fast, slow\n");
}

TEST_F(CmdLineTest, GetEnumSplitsAtCommasAndBlanks) {
    EXPECT_EQ(getEnum("fast", "fast,slow"), 0);
    EXPECT_EQ(getEnum("slow", " fast, ,slow "), 1);
    EXPECT_EQ(getEnum("medium", "fast slow"), -1);
    EXPECT_EQ(getEnum("", "fast,slow"), -1);
    EXPECT_EQ(getEnum("a", ""), -1);
}

// ---- the final check -----------------------------------------------------------------------

TEST_F(CmdLineTest, AllReadPasses) {
    parse({"file", "-debug", ",go"});
    getArg_Text(0);
    getSwitch_Null("debug");
    EXPECT_EXIT((assertCmdlineRead(), exit(0)), ::testing::ExitedWithCode(0), "^$");
}

TEST_F(CmdLineTest, DuplicateSwitchIsUnknown) {
    parse({"-debug", "-debug"});
    EXPECT_TRUE(getSwitch_Null("debug"));
    EXPECT_CMDLINE_ERROR(assertCmdlineRead(), "ERROR! Unknown switch: debug\n");
}

TEST_F(CmdLineTest, UnreadSwitchNameIsCutAtEquals) {
    parse({"-foo=3"});
    EXPECT_CMDLINE_ERROR(assertCmdlineRead(), "ERROR! Unknown switch: foo\n");
}

TEST_F(CmdLineTest, SwitchesAreReportedBeforeArguments) {
    parse({"extra", "-foo"});
    EXPECT_CMDLINE_ERROR(assertCmdlineRead(), "ERROR! Unknown switch: foo\n");
}

TEST_F(CmdLineTest, SuperfluousListArgument) {
    parse({"a.sld", "[1;abc]"});
    getArg_Text(0);
    EXPECT_CMDLINE_ERROR(assertCmdlineRead(), "ERROR! Superfluous argument: [1 abc]\n");
}

TEST_F(CmdLineTest, SuperfluousArgumentIsTheFirstUnread) {
    parse({"0.1", "x", "y"});
    getArg(1);
    EXPECT_CMDLINE_ERROR(assertCmdlineRead(), "ERROR! Superfluous argument: 0.10000000000000001\n");
}

TEST_F(CmdLineTest, CommandIsNeverReported) {
    parse({",anything"});
    EXPECT_EXIT((assertCmdlineRead(), exit(0)), ::testing::ExitedWithCode(0), "^$");
}

// ---- dump ----------------------------------------------------------------------------------

TEST_F(CmdLineTest, DumpFormats) {
    parse({"[0.1;[];txt;[2]]", ""});
    EXPECT_EQ(dumped(getArg(0)), "[0.10000000000000001 [] txt [2]]");
    EXPECT_EQ(dumped(getArg(1)), "<null>");
    Value n;
    n.type = Num;
    n.num = 1e300;
    EXPECT_EQ(dumped(n), "1.0000000000000001e+300");
}

TEST_F(CmdLineTest, DumpToNullGoesToStdout) {
    parse({"hello"});
    testing::internal::CaptureStdout();
    dump(getArg(0), nullptr);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "hello");
}

}  // namespace
