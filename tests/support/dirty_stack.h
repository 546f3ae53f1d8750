// Makes what a function leaves uninitialised visible.
#pragma once

namespace test {

// Fills the stack of the call that follows: areas in it that nobody initialises hold no zeros.
__attribute__((noinline)) inline void dirty_stack() {
    volatile unsigned char area[16384];
    for (volatile unsigned char& byte : area) byte = 0xA5;
}

}  // namespace test
