// rsvctl: placeholder until the command-line front end lands.
#include <cstdio>

int main()
{
    std::puts("rsvctl: not built yet");
    return 0;
}
