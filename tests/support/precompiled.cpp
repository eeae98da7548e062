// SPDX-License-Identifier: Apache-2.0
// Carries the headers that the tests share in compiled form; the program itself does nothing.
int main() { return 0; }
