// hold-open FILE: opens a file for reading, says so, and keeps it open until it is ended, at most ten minutes.
#include <chrono>
#include <fstream>
#include <iostream>
#include <thread>

int main(int argc, char** argv)
{
    std::ifstream file(argc == 2 ? argv[1] : "");
    if (!file) {
        std::cerr << "hold-open: cannot open the file\n";
        return 1;
    }
    std::cout << "held" << std::endl;
    std::this_thread::sleep_for(std::chrono::minutes(10));
    return 0;
}
