// Appends polls to a store until it is killed: store_writer FILE. Prints the number of each poll when it is committed.
#include "testing/store/Polls.h"

#include <iostream>

int main(int count, char** arguments)
{
    if (count != 2) {
        std::cerr << "usage: store_writer FILE\n";
        return 2;
    }
    try {
        reportd::CFigureStore store(arguments[1], reportd::CFigureStore::Access::kReadWrite,
                                    [](const std::string& text) { std::cerr << text << '\n'; });
        constexpr std::uint64_t kMostPolls = 100'000; // more than a test waits for
        for (std::uint64_t poll = testing_support::LastPoll(store) + 1; poll <= kMostPolls; ++poll) {
            testing_support::AppendPoll(store, poll);
            std::cout << poll << std::endl;
        }
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
