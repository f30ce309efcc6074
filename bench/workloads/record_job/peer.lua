local total, records, output = 0, 0, io.stdout
local pattern = "([^,]*),([^,]*),([^,]*),([^,]*),"
local match, format = string.match, string.format
for line in io.lines("calls.csv") do
    local caller, called, seconds, rate = match(line, pattern)
    local price = tonumber(rate) * tonumber(seconds)
    total = total + price
    records = records + 1
    output:write(caller, ",", called, ",", seconds, ",", rate, ",", format("%.4f", price), "\n")
end
output:write(records, " ", format("%.4f", total), "\n")
