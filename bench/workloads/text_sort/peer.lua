local lines = {}
for line in io.lines("lines.txt") do
    lines[#lines + 1] = line
end
table.sort(lines)
for i = 1, #lines, 100000 do
    print(lines[i])
end
