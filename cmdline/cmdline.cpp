// Command-line parsing into the static store, and the typed queries over it.
#include "cmdline/cmdline.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "support/util.h"

namespace CmdLine {

const Value Value_NULL = {Null, {0.0}};
const Value Value_ERR = {Null, {-1.0}};

// Defined in this order so that they are released in the reverse one at exit.
namespace RawData {
char* cmd = nullptr;
vec<SwitchEntry> switches;
vec<Value> args;
vec<unsigned char> switch_checked;
vec<unsigned char> arg_checked;
}  // namespace RawData

vec<vec<Value>*> free_list;

static void releaseLists() {
    for (vec<Value>* list : free_list) delete list;
    free_list.release();
}

// Destroyed just before free_list itself: releases the lists it points to. When the memory
// pool has already been finalised, the lists' storage went with it and nothing is left to do.
static struct ListReleaser {
    ~ListReleaser() {
        if (vec_mempool) releaseLists();
    }
} list_releaser;

using namespace RawData;

void fail(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vfprintf(stderr, fmt, ap);
    va_end(ap);
#ifdef SLIDES_FUZZING
    throw FailExit{10};
#endif
    exit(10);
}

void reset() {
    releaseLists();
    cmd = nullptr;
    switches.release();
    args.release();
    switch_checked.release();
    arg_checked.release();
}

// ---- parsing ---------------------------------------------------------------------------------

static bool isNumberChar(char c) { return (c >= '0' && c <= '9') || c == '.' || c == '+' || c == '-'; }
static bool endsListItem(char c) { return c == 0 || c == ']' || c == ';'; }

static void skipSeparators(char*& p) {
    while (*p == ' ' || *p == '\t' || *p == ',') p++;
}

// The end of the number token starting at p, or null when the text there is not a number.
static char* numberEnd(char* p) {
    if (!isNumberChar(*p)) return nullptr;
    char* q = p + 1;
    while (isNumberChar(*q)) q++;
    return endsListItem(*q) ? q : nullptr;
}

static Value listValue(vec<Value>* list) {
    Value v;
    v.type = List;
    v.list = list;
    return v;
}

// Opens a list at the '[' under p.
static vec<Value>* openList(char*& p) {
    vec<Value>* list = new vec<Value>;
    free_list.push(list);
    p++;
    return list;
}

// A number or a text token at p (not at NUL, not at '[').
static void parseScalar(char*& p, Value& out) {
    if (char* end = numberEnd(p)) {
        char kept = *end;
        *end = 0;
        out.type = Num;
        out.num = strtod(p, nullptr);
        *end = kept;
        p = end;
    } else {
        out.type = Text;
        out.text = p;
        while (!endsListItem(*p)) p++;
    }
    skipSeparators(p);
}

// Parses the list whose '[' is under p, nested lists included. The lists still open are kept
// on an explicit stack, so that no nesting depth can exhaust the call stack.
static void parseList(char*& p, Value& out) {
    vec<vec<Value>*> open;
    open.push(openList(p));
    for (;;) {
        vec<Value>* list = open.last();
        if (*p == ']') {
            *p++ = 0;
            open.size--;
            if (open.size == 0) {
                out = listValue(list);
                return;
            }
            open.last()->push(listValue(list));
            continue;
        }
        if (*p == ';') *p++ = 0;
        skipSeparators(p);
        if (*p == 0) fail("ERROR! Unterminated list; missing ']'. Did you forget to use quotes or commas?\n");
        if (*p == '[') {
            open.push(openList(p));
            continue;
        }
        Value item;
        parseScalar(p, item);
        list->push(item);
    }
}

bool parseValue(char*& p, Value& out) {
    skipSeparators(p);
    if (*p == 0) {
        out = Value_NULL;
        return false;
    }
    if (*p == '[')
        parseList(p, out);
    else
        parseScalar(p, out);
    return true;
}

static void addArg(Value v) {
    args.push(v);
    arg_checked.push(0);
}

static void addSwitch(char* arg) {
    char* name = arg[1] == '-' ? arg + 2 : arg + 1;
    Value value = Value_NULL;
    if (char* eq = strchr(name, '=')) {
        *eq = 0;
        char* p = eq + 1;
        parseValue(p, value);
    }
    switches.push(SwitchEntry{name, value});
    switch_checked.push(0);
}

void parseCommandline(int argc, char** argv) {
    bool after_double_dash = false;
    for (int i = 1; i < argc; i++) {
        char* arg = argv[i];
        if (!arg) continue;
        if (arg[0] == ',') {
            if (cmd) fail("ERROR! Only one command may be specified.\n");
            cmd = arg + 1;
        } else if (arg[0] == '-' && !after_double_dash) {
            if (strcmp(arg, "-") == 0) {
                Value dash;
                dash.type = Text;
                dash.text = arg;
                addArg(dash);
            } else if (strcmp(arg, "--") == 0) {
                after_double_dash = true;
            } else {
                addSwitch(arg);
            }
        } else {
            Value v;
            char* p = arg;
            parseValue(p, v);
            addArg(v);
        }
    }
}

// ---- positional arguments --------------------------------------------------------------------

static bool hasArg(int i) { return i >= 0 && i < args.size; }

// True when d survives a round trip through a 32-bit int unchanged.
static bool isExactInt(double d) { return d >= -2147483648.0 && d < 2147483648.0 && (double)(int)d == d; }

Value getArg(int i) {
    if (!hasArg(i)) fail("ERROR! Missing argument %d.\n", i + 1);
    arg_checked[i] = 1;
    return args[i];
}

double getArg_Num(int i) {
    Value v = getArg(i);
    if (v.type != Num) fail("ERROR! Argument %d expected to be a number.\n", i + 1);
    return v.num;
}

double getArg_Num(int i, double def) { return hasArg(i) ? getArg_Num(i) : def; }

static int argAsInt(int i, double d) {
    if (!isExactInt(d)) fail("ERROR! Argument %d expected to be an integer.\n", i + 1);
    return (int)d;
}

int getArg_Int(int i) { return argAsInt(i, getArg_Num(i)); }

int getArg_Int(int i, int def) { return argAsInt(i, getArg_Num(i, (double)def)); }

char* getArg_Text(int i) {
    Value v = getArg(i);
    if (v.type != Text) fail("ERROR! Argument %d expected to be a string.\n", i + 1);
    return v.text;
}

char* getArg_Text(int i, char* def) { return hasArg(i) ? getArg_Text(i) : def; }

// ---- switches --------------------------------------------------------------------------------

static bool isAbsent(Value v) { return v.type == Null && v.num == -1.0; }

Value getSwitch(const char* name, Value def) {
    for (int i = 0; i < switches.size; i++) {
        if (strcmp(switches[i].name, name) == 0) {
            switch_checked[i] = 1;
            return switches[i].value;
        }
    }
    return def;
}

double getSwitch_Num(const char* name, double def) {
    Value v = getSwitch(name, Value_ERR);
    if (isAbsent(v)) return def;
    if (v.type != Num) fail("ERROR! Expected number as argument to switch: %s\n", name);
    return v.num;
}

int getSwitch_Int(const char* name, int def) {
    double d = getSwitch_Num(name, (double)def);
    if (!isExactInt(d)) fail("ERROR! Expected integer as argument to switch: %s\n", name);
    return (int)d;
}

char* getSwitch_Text(const char* name, char* def) {
    Value v = getSwitch(name, Value_ERR);
    if (isAbsent(v)) return def;
    if (v.type != Text) fail("ERROR! Expected string as argument to switch: %s\n", name);
    return v.text;
}

int getSwitch_Enum(const char* name, const char* alternatives, int def) {
    char* text = getSwitch_Text(name, nullptr);
    if (!text) return def;
    int index = getEnum(text, alternatives);
    if (index < 0) fail("ERROR! '-%s' expected one of: %s\n", name, alternatives);
    return index;
}

bool getSwitch_Null(const char* name) {
    Value v = getSwitch(name, Value_ERR);
    if (isAbsent(v)) return false;
    if (v.type != Null) fail("ERROR! Switch takes no argument: %s\n", name);
    return true;
}

// ---- command and alternatives ----------------------------------------------------------------

int getCommand_Enum(const char* alternatives, int def) {
    if (!cmd) return def;
    int index = getEnum(cmd, alternatives);
    if (index < 0) fail("ERROR! Command should be one of: %s\n", alternatives);
    return index;
}

int getEnum(const char* word, const char* alternatives) {
    vec<char*> pieces;
    splitString(alternatives, ", ", pieces);
    int found = -1;
    for (int i = 0; i < pieces.size; i++) {
        if (found < 0 && strcmp(word, pieces[i]) == 0) found = i;
        free(pieces[i]);
    }
    pieces.release();
    return found;
}

// ---- checking and printing -------------------------------------------------------------------

void assertCmdlineRead() {
    for (int i = 0; i < switches.size; i++)
        if (!switch_checked[i]) fail("ERROR! Unknown switch: %s\n", switches[i].name);
    for (int i = 0; i < args.size; i++) {
        if (!arg_checked[i]) {
            fprintf(stderr, "ERROR! Superfluous argument: ");
            dump(args[i], stderr);
            fail("\n");
        }
    }
}

void dump(Value v, FILE* out) {
    if (!out) out = stdout;
    switch (v.type) {
    case Num:
        fprintf(out, "%.17g", v.num);
        break;
    case Text:
        fputs(v.text, out);
        break;
    case List:
        fputc('[', out);
        for (int i = 0; i < v.list->size; i++) {
            if (i) fputc(' ', out);
            dump((*v.list)[i], out);
        }
        fputc(']', out);
        break;
    default:
        fputs("<null>", out);
    }
}

}  // namespace CmdLine
