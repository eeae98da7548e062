// SPDX-License-Identifier: Apache-2.0
// Stands for the host platform's log library. It hands every call to the test executable that loaded it.
extern "C" {

void hostLogCalled(const char* function, void* a1, void* a2, void* a3, int a4, void* a6);
void hostLogUnloaded();
void functionThatNobodyDefines();

#ifndef VORN_WITHOUT_INFO
void LogInfo(void* a1, void* a2, void* a3, int a4, void* a6) { hostLogCalled("LogInfo", a1, a2, a3, a4, a6); }
#endif

#ifndef VORN_WITHOUT_WARN
void LogWarn(void* a1, void* a2, void* a3, int a4, void* a6) { hostLogCalled("LogWarn", a1, a2, a3, a4, a6); }
#endif

#ifndef VORN_WITHOUT_ERROR
void LogError(void* a1, void* a2, void* a3, int a4, void* a6) { hostLogCalled("LogError", a1, a2, a3, a4, a6); }
#endif

// When the library goes from memory.
__attribute__((destructor)) void unloaded() { hostLogUnloaded(); }

// Never called; a loader that binds everything at once refuses the library because of it.
void logRotate() { functionThatNobodyDefines(); }
}
