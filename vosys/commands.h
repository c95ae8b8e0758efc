// The commands of vosys, one function each: argc and argv hold the
// command's own arguments. The result is the process's exit status.
#ifndef VOSYS_COMMANDS_H
#define VOSYS_COMMANDS_H

#include <string>

// The bytes of a file, or of standard input for a null path; false, with a
// message on standard error, when they can't be read.
bool ReadInput(const char* path, std::string* bytes);

int CmdChars(int argc, char** argv);
int CmdEncodings(int argc, char** argv);
int CmdConvert(int argc, char** argv);
int CmdPath(int argc, char** argv);
int CmdGrep(int argc, char** argv);
int CmdBidi(int argc, char** argv);
int CmdShape(int argc, char** argv);
int CmdIni(int argc, char** argv);
int CmdXml(int argc, char** argv);
int CmdRsrc(int argc, char** argv);
int CmdDate(int argc, char** argv);
int CmdColor(int argc, char** argv);
int CmdText(int argc, char** argv);

// Makes the library read the texts of language code (such as "fra") through
// settings of this process's own; false, with a message, if it can't.
bool UseLanguage(const char* code);

#endif
