// main() of the bus test programs: one private dbus-daemon for the program.
#include <gtest/gtest.h>

#include <iostream>

#include "PrivateBus.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testbed::PrivateBus bus;
    if (!GTEST_FLAG_GET(list_tests)) {
        try {
            bus.Start();
        } catch (const std::exception& e) {
            std::cerr << "cannot start the private bus: " << e.what() << '\n';
            return 1;
        }
    }
    return RUN_ALL_TESTS();
}
