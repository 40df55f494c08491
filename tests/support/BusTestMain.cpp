// main() of the bus test programs: one private dbus-daemon for the program.
#include <gtest/gtest.h>

#include <cstring>
#include <iostream>

#include "PrivateBus.h"

namespace {

bool OnlyListsTests(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    // Before InitGoogleTest, which removes the flags it knows from argv.
    const bool onlyListsTests = OnlyListsTests(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    testbed::PrivateBus bus;
    if (!onlyListsTests) {
        try {
            bus.Start();
        } catch (const std::exception& e) {
            std::cerr << "cannot start the private bus: " << e.what() << '\n';
            return 1;
        }
    }
    const int result = RUN_ALL_TESTS();
    bus.Stop();
    return result;
}
