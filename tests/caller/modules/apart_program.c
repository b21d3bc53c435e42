/* SPDX-License-Identifier: MIT
 *
 * The program that belongs to apart.c. */
typedef int apart_program;
