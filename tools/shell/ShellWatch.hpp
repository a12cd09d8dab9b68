// The class "ShellWatch", through which the shell hears notifications: a
// subscriber that hands every firing it receives to a procedure of the
// shell's own. It lives in a small class library of its own ("KVSHELL.DLL",
// libkvshell.so), found through the class location table like any other,
// because the kernel takes a class's procedures from a loadable library.
//
//   kvNewObject(&error, "ShellWatch", procedure, context)
//   kvAddNotification(&error, notifier, "OnStore", watch, "fired", 0)
#pragma once

#include "kova/kernel.h"

namespace kova::shell {

// Called for each firing with the context given at creation and the firing's
// list: notifier, event name, then the firing's own slots. Its answer is the
// subscriber's answer (0 lets a vetoable firing go on).
using WatchProcedure = kvResult (*)(void* context, const kvArgs* firing);

constexpr const char* watchClassName = "ShellWatch";
constexpr const char* watchMethodName = "fired";
constexpr const char* watchLibraryName = "KVSHELL.DLL";

} // namespace kova::shell
