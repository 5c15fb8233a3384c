#ifndef CHANGERCTL_COMMANDS_H
#define CHANGERCTL_COMMANDS_H

/* The commands, one function each. All throw Failure. */

#include "changerctl/Options.h"

namespace changerctl {

/* Print what the server shows at present. */
void List(const Options& options);
void Show(const Options& options);

/* Shows each change until a signal ends the process. */
void Watch(const Options& options);

/* Request the identification of discs, or a build; or withdraw the request. */
void Identify(const Options& options);
void Build(const Options& options);

/* Requests that a build be stopped, and waits until it has. */
void Abort(const Options& options);

/* Move a disc between its slot and a drive. */
void Mount(const Options& options);
void Eject(const Options& options);

} // namespace changerctl

#endif
