#include <cstdio>

int main()
{
    std::fprintf(stderr, "ombrelo-devicesim: not built yet\n");
    return 1;
}
