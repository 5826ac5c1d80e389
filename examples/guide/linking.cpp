#include <connector/diagnostics/ModuleIdentity.h>

#include <iostream>

int main() {
    std::cout << libqzconnectorframeworkimpl_version << '\n'
              << libqzconnectorframeworkimpl_build_date << '\n'
              << libqzconnectorframeworkimpl_relative_path << '\n';
}
