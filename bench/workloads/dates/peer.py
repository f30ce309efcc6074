from datetime import datetime, timedelta


def main():
    text, total, i = "2024-01-31 10:20:30", 0, 0
    while i < 300000:
        start = datetime.strptime(text, "%Y-%m-%d %H:%M:%S")
        later = start + timedelta(seconds=i % 100000 * 7)
        shown = later.strftime("%Y-%m-%d %H:%M:%S")
        total = total + int((later - start).total_seconds())
        if i % 1000 == 999:
            text = shown
        i = i + 1
    print(shown, total)


main()
