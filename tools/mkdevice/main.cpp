#include <cstdio>

int main()
{
    std::fprintf(stderr, "ombrelo-mkdevice: not built yet\n");
    return 1;
}
