// The library's outside: what it exports, what it imports, what it needs at run time, and the
// version record.
#include <gtest/gtest.h>
#include <dlfcn.h>
#include <stdio.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "zemdc.h"

namespace {

std::string run(const std::string& cmd) {
    std::string out;
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    pclose(p);
    return out;
}

std::set<std::string> dynamic_symbols(const char* which) {
    std::set<std::string> names;
    std::istringstream in(run(std::string("nm -D ") + which + " " + ZEMDC_LIBRARY));
    std::string line;
    while (std::getline(in, line)) {
        auto sp = line.find_last_of(' ');
        std::string name = line.substr(sp + 1);
        auto at = name.find('@');
        if (at != std::string::npos) name = name.substr(0, at);
        if (!name.empty()) names.insert(name);
    }
    return names;
}

std::set<std::string> header_functions() {
    std::ifstream f(ZEMDC_HEADER);
    std::stringstream ss;
    ss << f.rdbuf();
    std::string text = ss.str();
    std::set<std::string> names;
    std::regex decl(R"(ZEM_API[^;(]*?\b(\w+)\s*\()");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), decl); it != std::sregex_iterator(); ++it)
        names.insert((*it)[1].str());
    names.erase("__attribute__");
    return names;
}

}  // namespace

TEST(Abi, ExportsExactlyTheHeaderFunctions) {
    std::set<std::string> declared = header_functions();
    ASSERT_FALSE(declared.empty());
    ASSERT_TRUE(declared.count("zemdcGetLibVersion"));
    std::set<std::string> exported = dynamic_symbols("--defined-only");
    // Linker-provided markers are not functions of ours.
    for (const char* s : {"_init", "_fini", "__bss_start", "_edata", "_end"}) exported.erase(s);
    EXPECT_EQ(declared, exported);
}

TEST(Abi, ImportsOnlyMemoryPrimitivesAndTheCoreLibrary) {
    if (ZEMDC_SANITIZED) GTEST_SKIP() << "sanitizer runtimes add their own imports";
    const std::set<std::string> allowed = {
        "memcpy", "memmove", "memset", "memcmp", "__stack_chk_fail", "__cxa_finalize", "__gmon_start__",
        "_ITM_registerTMCloneTable", "_ITM_deregisterTMCloneTable", "zemGetMaxCacheSizeB", "ownGetFeature"};
    for (const std::string& s : dynamic_symbols("--undefined-only"))
        EXPECT_TRUE(allowed.count(s)) << "libzemdc.so imports " << s;
}

TEST(Abi, NeedsOnlyTheCoreLibraryAndLibc) {
    if (ZEMDC_SANITIZED) GTEST_SKIP() << "sanitizer runtimes are extra dependencies";
    std::string dyn = run(std::string("readelf -d ") + ZEMDC_LIBRARY);
    std::regex needed(R"(\(NEEDED\)\s+Shared library: \[([^\]]+)\])");
    std::set<std::string> libs;
    for (auto it = std::sregex_iterator(dyn.begin(), dyn.end(), needed); it != std::sregex_iterator(); ++it)
        libs.insert((*it)[1].str());
    EXPECT_TRUE(libs.count("libzemcore.so.2022"));
    for (const std::string& lib : libs)
        EXPECT_TRUE(lib == "libzemcore.so.2022" || lib == "libc.so.6") << "libzemdc.so needs " << lib;
    EXPECT_NE(dyn.find("Library soname: [libzemdc.so.2022]"), std::string::npos) << dyn;
}

// No writable data of the library's own: the writable sections outside the part made read-only
// after relocation (RELRO) hold only what the toolchain puts there, there is no thread-local
// storage and no text relocation, and every relocation is resolved at load (BIND_NOW), so the
// GOT and the pointer-holding constants (the version record) become read-only before any call.
TEST(Abi, HoldsNoWritableStateOfItsOwn) {
    if (ZEMDC_SANITIZED) GTEST_SKIP() << "sanitizer runtimes add writable data of their own";
    const std::string lib = ZEMDC_LIBRARY;
    const std::string segs = run("readelf -lW " + lib);
    EXPECT_EQ(segs.find(" TLS "), std::string::npos) << "thread-local storage";
    std::smatch m;
    ASSERT_TRUE(std::regex_search(segs, m, std::regex(R"(GNU_RELRO\s+0x[0-9a-f]+\s+0x([0-9a-f]+)\s+0x[0-9a-f]+\s+0x[0-9a-f]+\s+0x([0-9a-f]+))")))
        << segs;
    const unsigned long relro_lo = std::stoul(m[1].str(), nullptr, 16);
    const unsigned long relro_hi = relro_lo + std::stoul(m[2].str(), nullptr, 16);

    const std::string dyn = run("readelf -dW " + lib);
    EXPECT_EQ(dyn.find("TEXTREL"), std::string::npos);
    EXPECT_NE(dyn.find("BIND_NOW"), std::string::npos);

    // Data symbols (nm types d, D, b, B) outside RELRO: only the toolchain's own.
    const std::set<std::string> toolchain = {"__dso_handle", "completed.0", "__TMC_END__"};
    std::istringstream syms(run("nm --defined-only " + lib));
    std::string line;
    int data_syms = 0;
    while (std::getline(syms, line)) {
        std::istringstream f(line);
        std::string addr, type, name;
        if (!(f >> addr >> type >> name) || (type != "d" && type != "D" && type != "b" && type != "B")) continue;
        ++data_syms;
        const unsigned long a = std::stoul(addr, nullptr, 16);
        if (a >= relro_lo && a < relro_hi) continue;
        EXPECT_TRUE(toolchain.count(name)) << "writable data symbol " << name;
    }
    EXPECT_GT(data_syms, 0) << "nm listed no data symbols; the check saw nothing";

    // At run time the version record sits in a page that is mapped read-only.
    void* h = dlopen(lib.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(h, nullptr) << dlerror();
    auto get = reinterpret_cast<const zemLibraryVersion* (*)()>(dlsym(h, "zemdcGetLibVersion"));
    ASSERT_NE(get, nullptr);
    const auto rec = reinterpret_cast<unsigned long>(get());
    std::ifstream maps("/proc/self/maps");
    bool found = false;
    while (std::getline(maps, line)) {
        unsigned long lo = 0, hi = 0;
        char perms[5] = {};
        if (sscanf(line.c_str(), "%lx-%lx %4s", &lo, &hi, perms) != 3 || rec < lo || rec >= hi) continue;
        found = true;
        EXPECT_EQ(perms[1], '-') << "the version record lies in a writable mapping: " << line;
    }
    EXPECT_TRUE(found);
    dlclose(h);
}

TEST(Abi, VersionRecord) {
    const zemLibraryVersion* v = zemdcGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, zemdcGetLibVersion());
    EXPECT_EQ(v->major, 2022);
    EXPECT_EQ(v->minor, 3);
    EXPECT_EQ(v->majorBuild, 0);
    EXPECT_EQ(v->build, 0x0FC08BB1);
    EXPECT_EQ(0, memcmp(v->targetCpu, "q4\0\0", 4));
    EXPECT_STREQ(v->Name, "zemDC AVX2 (q4)");
    EXPECT_STREQ(v->Version, "2022.3.0 (r0x0fc08bb1)");
    EXPECT_STREQ(v->BuildDate, "Sep 19 2025");
}

// The status values are part of the C interface: callers compare against the numbers.
static_assert(zemStatusOk == 0 && zemStatusError == -2 && zemStatusStreamEnd == -4 && zemStatusBadArg == -5 &&
              zemStatusSize == -6 && zemStatusNullPtr == -8 && zemStatusContextMismatch == -13 &&
              zemStatusBadMode == -16 && zemStatusBadData == -200 && zemStatusSrcTooShort == 32 &&
              zemStatusDstTooSmall == 33);
