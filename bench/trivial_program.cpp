#include <iostream>

int main() {
  std::cout << "1.1.0\n";
  return 0;
}
