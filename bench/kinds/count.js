// Work that a JavaScript engine compiles: bench/record_kinds records it.
"use strict";

function countDivisors(number) {
  let count = 0;
  for (let divisor = 1; divisor * divisor <= number; ++divisor) {
    count += number % divisor === 0 ? 1 : 0;
  }
  return count;
}

function sumText(text) {
  let sum = 0;
  for (const letter of text) {
    sum += letter.charCodeAt(0);
  }
  return sum;
}

const end = Date.now() + 1000 * Number(process.argv[2]);
let total = 0;
for (let number = 1; Date.now() < end; ++number) {
  total += countDivisors(number % 100000) + sumText(`number ${number}`);
}
console.log(total);
