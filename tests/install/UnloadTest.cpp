#include <fl/log/severity_mask.h>

#include <boost/dll/shared_library.hpp>
#include <boost/log/core.hpp>
#include <boost/log/utility/setup/console.hpp>
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <malloc.h>
#include <string>

namespace {

bool mapped(const std::string& library) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find(library.substr(library.rfind('/') + 1)) != std::string::npos)
            return true;
    return false;
}

using Module = boost::dll::shared_library;

/// Loads and unloads `file` a thousand times, with `use` between; nothing may stay mapped, and no memory be kept.
void checkUnloading(const char* file, const std::function<void(const Module&)>& use) {
    std::size_t before = 0;
    for (int i = 0; i < 1100; ++i) {
        if (i == 100) // what is made once and kept, by whomever, is made by now
            before = mallinfo2().uordblks;
        Module module(file, boost::dll::load_mode::rtld_now);
        fl::log::setEnabledSeverityMask("connector::framework", 0x208);
        use(module);
        module.unload();
        for (const char* library : {file, IMPLEMENTATION, INTERFACE})
            ASSERT_FALSE(mapped(library)) << library;
        // Had the logger's destructor not run, this would write into it, where nothing is mapped any more.
        fl::log::setEnabledSeverityMask("connector::framework", 0x300);
    }
    EXPECT_LT(mallinfo2().uordblks, before + 1000); // less than a byte a time
}

TEST(Unload, UnmapsTheLibraryAndDestroysItsLogger) {
    checkUnloading(IMPLEMENTATION, [](const Module& module) {
        const auto identity = [&](const std::string& part) {
            return module.get<const char* const>("libqzconnectorframeworkimpl_" + part);
        };
        EXPECT_STREQ(identity("version"), "9.2.0.929507");
        EXPECT_STREQ(identity("build_date"), "Aug  7 2018");
        EXPECT_STREQ(identity("relative_path"), "bin\\win64\\libqzconnectorframeworkimpl.dll");
    });
}

TEST(Unload, UnmapsAPluginThatUsedTheFramework) {
    const auto sink = boost::log::add_console_log(
        std::clog, boost::log::keywords::filter = [](const auto&) { return false; });
    checkUnloading(PLUGIN, [](const Module& module) { EXPECT_TRUE(module.get<bool()>("useFramework")()); });
    boost::log::core::get()->remove_sink(sink);
}

TEST(Interface, HasTheOperationsOfAddressForCallersThatPutNothingInLine) {
    const Module library(INTERFACE);
    for (const std::string operation : {"C1Ev", "C1ENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE", "C1ERKS0_",
                                        "C1EOS0_", "D1Ev", "aSERKS0_", "aSEOS0_", "3popB5cxx11Ev", "7popHashEv"})
        EXPECT_NO_THROW(library.get<void()>("_ZN9connector7Address" + operation)) << operation;
}

} // namespace
