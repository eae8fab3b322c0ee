// Command line: a command, switches and positional arguments with typed values, kept in one
// static store and read back through queries. Every user error prints one line starting with
// "ERROR! " to stderr and exits with status 10.
#pragma once
#include <cstdio>

#include "support/vec.h"

namespace CmdLine {

enum Type { Null = 0, Num = 1, Text = 2, List = 3 };

// A parsed value. Text points into the argv storage, which parsing modifies in place.
struct Value {
    int type;
    union {
        double num;
        char* text;
        vec<Value>* list;
    };
};

extern const Value Value_NULL;  // Null, payload all zero: a switch without "=", an empty value
extern const Value Value_ERR;   // Null, payload -1.0: the "absent" default of the switch queries

struct SwitchEntry {
    char* name;
    Value value;
};

// The parsed command line. Each checked byte is set once a query has read its entry.
namespace RawData {
extern char* cmd;
extern vec<SwitchEntry> switches;
extern vec<Value> args;
extern vec<unsigned char> switch_checked;
extern vec<unsigned char> arg_checked;
}  // namespace RawData

// Every list allocated by parsing; released at process exit.
extern vec<vec<Value>*> free_list;

// Prints the message to stderr and exits with status 10: the single exit of every error.
[[noreturn]] void fail(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

#ifdef SLIDES_FUZZING
// Fuzz builds only: fail throws this instead of exiting, so one process can try many command lines.
struct FailExit {
    int status;
};
#endif

void parseCommandline(int argc, char** argv);
bool parseValue(char*& p, Value& out);

Value getArg(int i);
double getArg_Num(int i);
double getArg_Num(int i, double def);
int getArg_Int(int i);
int getArg_Int(int i, int def);
char* getArg_Text(int i);
char* getArg_Text(int i, char* def);

Value getSwitch(const char* name, Value def);
double getSwitch_Num(const char* name, double def);
int getSwitch_Int(const char* name, int def);
char* getSwitch_Text(const char* name, char* def);
int getSwitch_Enum(const char* name, const char* alternatives, int def);
bool getSwitch_Null(const char* name);

int getCommand_Enum(const char* alternatives, int def);
int getEnum(const char* word, const char* alternatives);

void assertCmdlineRead();
void dump(Value v, FILE* out);

// Empties the store and releases its storage, so that a new command line can be parsed.
void reset();

}  // namespace CmdLine
