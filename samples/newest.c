/* Prints each data file's company, kind, number of records and newest value: newest [FOLDER] */
#include <ampora.h>

#include <inttypes.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    const char* folder = argc > 1 ? argv[1] : NULL;
    int status = 0;
    for (uint32_t c = 0; c < ampora_company_count(); ++c) {
        for (uint32_t k = 0; k < ampora_kind_count(); ++k) {
            int32_t company = ampora_company_at(c);
            uint32_t kind = ampora_kind_at(k);
            ampora_file* file = NULL;
            int32_t result = ampora_read(folder, company, kind, &file);
            if (result == AMPORA_ERROR_MISSING) {
                continue;
            }
            printf("%s, %s: ", ampora_company_name(company), ampora_kind_name(kind));
            if (result != AMPORA_OK) {
                printf("%s\n", ampora_error_text(result));
                status = 1;
                continue;
            }
            const ampora_record* newest = ampora_file_newest(file);
            printf("%" PRIu32 " records", ampora_file_count(file));
            if (newest != NULL) {
                printf(", newest value %" PRIu64, newest->value);
            }
            printf("\n");
            ampora_file_free(file);
        }
    }
    return status;
}
