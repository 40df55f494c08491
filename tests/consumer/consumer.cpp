// A C++ program outside the project, built with find_package against the installed library.
#include <VerantiAPI.h>

#include <iostream>

int main() {
    const CVerantiAPI::CErrorDescriptor error(3, 12);
    const std::string text = error.ToString();
    const CVerantiAPI::CErrorDescriptor back = CVerantiAPI::CErrorDescriptor::FromString(text);
    if (text != "{\"error_code\":3,\"error_reason\":12}" || back.m_ErrorCode != 3 || back.m_ErrorReason != 12) {
        std::cerr << "consumer: unexpected round trip " << text << '\n';
        return 1;
    }
    std::cout << "consumer (C++): linked and ran\n";
    return 0;
}
