// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/version.h"

#include "tools/session/library_version.h"

#include "vorn_commit.h"

#include <dlfcn.h>

namespace vorn::tool {

std::string toolVersion() { return std::string(VORN_VERSION) + " (commit " VORN_COMMIT ")"; }

std::string libraryPath()
{
    Dl_info info{};
    return ::dladdr(::dlsym(RTLD_DEFAULT, "IC_GetInfo"), &info) != 0 && info.dli_fname != nullptr ? info.dli_fname
                                                                                                  : "not found";
}

std::string versionText() { return "vorn " + toolVersion() + "\nlibrary " + libraryVersion() + ", " + libraryPath(); }

} // namespace vorn::tool
