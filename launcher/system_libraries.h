// Where the program takes Windows' libraries from. A launcher lies in a folder where anybody may put a file, and
// Windows looks there first for a library that it does not keep in memory for everybody (KnownDLLs). The program
// therefore imports no such library by its name: winhttp.dll and bcrypt.dll are loaded when it has said where to look.
#pragma once

namespace kvx {

// The first statement of the program. From now on libraries are loaded from the system's folder only. Where one, or a
// function in it, is missing when it is called, the process ends with could_not_start after a message, or without one
// when the command line says that nobody is there.
void use_system_libraries_only();

}  // namespace kvx
