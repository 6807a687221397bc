// What the system itself takes to start a program in C++ and to end it.

#include <string>

int main(int count, char**)
{
    return static_cast<int>(std::string(static_cast<std::size_t>(count), ' ').empty());
}
