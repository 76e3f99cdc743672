#pragma once

extern "C" {
using TinTestRun = void (*)(void* argument);
using TinTestBegin = void* (*)(void* exception);
using TinTestEnd = void (*)();

/// The type that the clause of tinTestCatchOne names.
extern void* tinTestCatchType;

// Each calls run(argument) and catches what it throws, of that type or of any. Gives what `begin`
// made of the exception; null: nothing was thrown.
void* tinTestCatchOne(TinTestRun run, void* argument, TinTestBegin begin, TinTestEnd end);
void* tinTestCatchAll(TinTestRun run, void* argument, TinTestBegin begin, TinTestEnd end);
}
