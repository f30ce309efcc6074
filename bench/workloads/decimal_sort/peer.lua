local numbers = {}
for line in io.lines("numbers.txt") do
    numbers[#numbers + 1] = tonumber(line)
end
table.sort(numbers)
for i = 1, #numbers, 100000 do
    print(string.format("%.2f", numbers[i]))
end
