// Parses the newest 5000 lines of the last MiB of a log file with
// github.com/go-logfmt/logfmt, many times in a row from memory, and prints
// the median time of one parse in nanoseconds: the yardstick for a tail load.
//
//	logfmtparse <log file> <repetitions>
package main

import (
	"bytes"
	"fmt"
	"os"
	"sort"
	"strconv"
	"time"

	"github.com/go-logfmt/logfmt"
)

type record struct {
	raw, time, level, camera, msg []byte
}

func parse(data []byte) []record {
	out := make([]record, 0, 5000)
	d := logfmt.NewDecoder(bytes.NewReader(data))
	start := 0
	for d.ScanRecord() {
		var r record
		for d.ScanKeyval() {
			switch string(d.Key()) {
			case "time", "ts":
				r.time = append([]byte(nil), d.Value()...)
			case "level":
				r.level = append([]byte(nil), d.Value()...)
			case "camera", "cam":
				r.camera = append([]byte(nil), d.Value()...)
			case "msg":
				r.msg = append([]byte(nil), d.Value()...)
			}
		}
		end := bytes.IndexByte(data[start:], '\n')
		if end < 0 {
			end = len(data) - start
		}
		r.raw = append([]byte(nil), data[start:start+end]...)
		start += end + 1
		out = append(out, r)
	}
	if d.Err() != nil {
		// Malformed lines stop the decoder; the sample has none worth failing on.
		fmt.Fprintln(os.Stderr, "logfmt:", d.Err())
	}
	return out
}

// scan only decodes, keeping nothing: the lower bound of any parser built on it.
func scan(data []byte) int {
	n := 0
	d := logfmt.NewDecoder(bytes.NewReader(data))
	for d.ScanRecord() {
		for d.ScanKeyval() {
		}
		n++
	}
	return n
}

func main() {
	data, err := os.ReadFile(os.Args[1])
	if err != nil {
		panic(err)
	}
	reps, _ := strconv.Atoi(os.Args[2])
	if len(data) > 1<<20 {
		data = data[len(data)-(1<<20):]
		data = data[bytes.IndexByte(data, '\n')+1:]
	}
	lines := bytes.Split(bytes.TrimRight(data, "\n"), []byte("\n"))
	if len(lines) > 5000 {
		lines = lines[len(lines)-5000:]
	}
	tail := append(bytes.Join(lines, []byte("\n")), '\n')
	times := make([]float64, reps)
	n := 0
	for i := range times {
		t := time.Now()
		n = len(parse(tail))
		times[i] = float64(time.Since(t).Nanoseconds())
	}
	sort.Float64s(times)
	scans := make([]float64, reps)
	for i := range scans {
		t := time.Now()
		scan(tail)
		scans[i] = float64(time.Since(t).Nanoseconds())
	}
	sort.Float64s(scans)
	fmt.Printf("lines=%d median_ns=%.0f scan_only_median_ns=%.0f\n", n, times[len(times)/2], scans[len(scans)/2])
}
