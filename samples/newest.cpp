// Prints each data file's company, kind, number of records and newest value: newest [FOLDER]
#include <ampora.hpp>

#include <iostream>

int main(int argc, char** argv)
{
    const std::string folder = argc > 1 ? argv[1] : "";
    int status = 0;
    for (const std::int32_t company : ampora::companies()) {
        for (const std::uint32_t kind : ampora::kinds()) {
            const std::string name = ampora_company_name(company) + std::string(", ") + ampora_kind_name(kind) + ": ";
            try {
                const ampora::file file(folder, company, kind);
                std::cout << name << file.size() << " records";
                if (file.newest() != nullptr) {
                    std::cout << ", newest value " << file.newest()->value;
                }
                std::cout << "\n";
            } catch (const ampora::error& error) {
                if (error.code() != AMPORA_ERROR_MISSING) {
                    std::cout << name << error.what() << "\n";
                    status = 1;
                }
            }
        }
    }
    return status;
}
