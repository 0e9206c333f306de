// The console's spine: runVelmoVpnConsole creates the application object on
// the main thread, starts the console, and runs the event loop until SIGINT,
// SIGTERM or Quit. All session state lives in its locals; the only global is
// gQuitRequested. Everything here runs on the main thread.
#pragma once

/// Set by Quit; the console window's close handler reads it. Main thread only.
extern bool gQuitRequested;

/// Runs the console; returns the event loop's exit code. Throws when start-up fails.
int runVelmoVpnConsole(int argc, char** argv);
