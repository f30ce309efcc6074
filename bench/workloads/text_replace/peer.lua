local places, length, gsub, find = 0, 0, string.gsub, string.find
for line in io.lines("lines.txt") do
    line = gsub(line, "(%d+)%-(%d+) took", "%2/%1 for")
    places = places + find(line, "/", 1, true) - 1
    length = length + #line
end
print(places .. " " .. length)
