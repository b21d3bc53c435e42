/* SPDX-License-Identifier: MIT
 *
 * The program that belongs to apart_library.c. */
typedef int apart_program;
