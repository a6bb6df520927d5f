/// The module's own user, mount, network and PID namespaces, entered once per program.
#ifndef NAMESPACES_H
#define NAMESPACES_H

#include <functional>

/// Runs body inside new namespaces and ends the program with body's result as exit status (128 + signal if it was
/// killed). Never returns to the caller: three processes come out of the calling one.
///
///   caller   waits, passes SIGINT, SIGTERM and SIGHUP on
///   init     process 1 of the PID namespace; reaps; everything in the namespaces dies with it
///   host     runs body; holds every capability in the namespaces; sees itself as user 0, has lo up and its own /proc
///
/// Each dies with the one above, however that one ends; the mounts go with the last of them.
/// To be called at the start of main, before there is any thread. Where namespaces are forbidden it says on standard
/// error what is missing and how to allow it, and exits 1.
[[noreturn]] void RunInModuleNamespaces(const std::function<int()>& body);

#endif
