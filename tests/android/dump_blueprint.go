// Prints what the platform's own parser makes of the Android.bp on its input, as JSON. Ends with the
// parser's messages and a status other than 0 when it refuses.
package main

import (
	"encoding/json"
	"os"

	"github.com/google/blueprint/parser"
)

func main() {
	file, errs := parser.ParseAndEval("Android.bp", os.Stdin, parser.NewScope(nil))
	if len(errs) > 0 {
		panic(errs)
	}
	if err := json.NewEncoder(os.Stdout).Encode(file.Defs); err != nil {
		panic(err)
	}
}
