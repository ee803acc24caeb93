// Runs each of the files named through a target, where no fuzzer drives it.
#include <QFile>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *count, char ***arguments);

int main(int count, char **arguments)
{
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&count, &arguments);
    for (int i = 1; i < count; ++i) {
        QFile file(arguments[i]);
        if (!file.open(QIODevice::ReadOnly)) {
            fprintf(stderr, "%s cannot be read\n", arguments[i]);
            return 2;
        }
        const QByteArray bytes = file.readAll();
        fprintf(stderr, "%s\n", arguments[i]);
        LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char *>(bytes.data()),
                               size_t(bytes.size()));
    }
    return 0;
}
